#pragma once

#include <filesystem>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vrq {

// The process's persistent key-value store: a JSON object in one file,
// rewritten atomically (temporary file, fsync, rename) at every change.
// The file is $VRQ_HOME/defaults.json when VRQ_HOME is set, otherwise
// $XDG_CONFIG_HOME/vrqsdk/defaults.json. Thread-safe.
class UserDefaults {
public:
    static UserDefaults& standard();
    explicit UserDefaults(std::filesystem::path file);

    std::optional<nlohmann::json> objectForKey(const std::string& key);
    std::string stringForKey(const std::string& key); // "" when absent or not a string
    // Returns false when the file could not be written; the value is kept in memory.
    bool setObject(const nlohmann::json& value, const std::string& key);
    bool removeObjectForKey(const std::string& key);
    const std::filesystem::path& file() const { return m_file; }

private:
    void loadLocked();
    bool saveLocked();

    std::filesystem::path m_file;
    std::mutex m_mutex;
    nlohmann::json m_values;
    bool m_loaded = false;
};

// The user's documents folder: $VRQ_HOME/Documents when VRQ_HOME is set,
// otherwise the XDG documents directory.
std::filesystem::path documentsDirectory();

} // namespace vrq
