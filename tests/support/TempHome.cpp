#include "support/TempHome.h"

#include <cstdlib>
#include <stdexcept>

namespace vrqtest {

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "vrqtest-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    m_path = pattern;
}

TempDir::~TempDir()
{
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
}

TempHome::TempHome()
{
    if (const char* previous = std::getenv("VRQ_HOME")) {
        m_previous = previous;
        m_hadPrevious = true;
    }
    ::setenv("VRQ_HOME", m_dir.path().c_str(), 1);
}

TempHome::~TempHome()
{
    if (m_hadPrevious)
        ::setenv("VRQ_HOME", m_previous.c_str(), 1);
    else
        ::unsetenv("VRQ_HOME");
}

} // namespace vrqtest
