#include "vrq/platform/services/UserDefaults.h"

#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace vrq {
namespace {

std::filesystem::path homeOverride()
{
    const char* home = std::getenv("VRQ_HOME");
    return home && *home ? std::filesystem::path(home) : std::filesystem::path();
}

std::filesystem::path defaultsFile()
{
    if (auto home = homeOverride(); !home.empty())
        return home / "defaults.json";
    return std::filesystem::path(g_get_user_config_dir()) / "vrqsdk" / "defaults.json";
}

bool writeAll(int fd, const std::string& text)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n <= 0)
            return false;
        written += static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

UserDefaults& UserDefaults::standard()
{
    // Never destroyed: queues that live for the whole process may still read it at exit.
    static auto* defaults = new UserDefaults(defaultsFile());
    return *defaults;
}

UserDefaults::UserDefaults(std::filesystem::path file)
    : m_file(std::move(file))
    , m_values(nlohmann::json::object())
{
}

std::optional<nlohmann::json> UserDefaults::objectForKey(const std::string& key)
{
    std::lock_guard lock(m_mutex);
    loadLocked();
    auto it = m_values.find(key);
    if (it == m_values.end())
        return std::nullopt;
    return *it;
}

std::string UserDefaults::stringForKey(const std::string& key)
{
    auto value = objectForKey(key);
    return value && value->is_string() ? value->get<std::string>() : std::string();
}

bool UserDefaults::setObject(const nlohmann::json& value, const std::string& key)
{
    std::lock_guard lock(m_mutex);
    loadLocked();
    m_values[key] = value;
    return saveLocked();
}

bool UserDefaults::removeObjectForKey(const std::string& key)
{
    std::lock_guard lock(m_mutex);
    loadLocked();
    m_values.erase(key);
    return saveLocked();
}

void UserDefaults::loadLocked()
{
    if (m_loaded)
        return;
    m_loaded = true;
    std::ifstream in(m_file);
    if (!in)
        return;
    std::stringstream text;
    text << in.rdbuf();
    auto parsed = nlohmann::json::parse(text.str(), nullptr, false);
    if (parsed.is_object())
        m_values = std::move(parsed);
}

// Temporary file, fsync, rename: a reader sees the old file or the new one, never half of one.
bool UserDefaults::saveLocked()
{
    std::error_code error;
    std::filesystem::create_directories(m_file.parent_path(), error);
    const std::string temporary = m_file.string() + ".tmp." + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    const bool ok = writeAll(fd, m_values.dump(2, ' ', false, nlohmann::json::error_handler_t::replace))
                    && ::fsync(fd) == 0;
    ::close(fd);
    if (!ok || std::rename(temporary.c_str(), m_file.c_str()) != 0) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

std::filesystem::path documentsDirectory()
{
    if (auto home = homeOverride(); !home.empty())
        return home / "Documents";
    if (const char* documents = g_get_user_special_dir(G_USER_DIRECTORY_DOCUMENTS))
        return documents;
    return std::filesystem::path(g_get_home_dir()) / "Documents";
}

} // namespace vrq
