#include "support/LoopbackAddress.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace vrqtest {

namespace {

// Holds an exclusive lock on a file named after the address; the kernel drops
// the lock when the process ends, however it ends.
bool claim(int n)
{
    const auto folder = std::filesystem::temp_directory_path() / "vrq-loopback";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const auto path = folder / std::to_string(n);
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0)
        return true; // kept open for the life of the process
    ::close(fd);
    return false;
}

std::string pick()
{
    // Start where this process's id points, so that processes seldom try the same ones.
    const int start = static_cast<int>(::getpid() % 253);
    for (int i = 0; i < 253; ++i) {
        const int n = 2 + (start + i) % 253;
        if (claim(n))
            return "127.0.0." + std::to_string(n);
    }
    throw std::runtime_error("every loopback address 127.0.0.2-254 is held by another test");
}

} // namespace

std::string loopbackAddress()
{
    static const std::string address = pick();
    return address;
}

} // namespace vrqtest
