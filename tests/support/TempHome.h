#pragma once

#include <filesystem>
#include <string>

namespace vrqtest {

// A fresh temporary folder, removed again at destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// Points VRQ_HOME at a temporary folder for the lifetime of the object, so
// that user defaults and documents stay out of the real home.
class TempHome {
public:
    TempHome();
    ~TempHome();
    const std::filesystem::path& path() const { return m_dir.path(); }

private:
    TempDir m_dir;
    std::string m_previous;
    bool m_hadPrevious = false;
};

} // namespace vrqtest
