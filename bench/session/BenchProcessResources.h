#pragma once

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

// What this process holds at one moment, read from /proc/self: resident
// memory, the heap in use, and its threads and open descriptors by name, so
// that a count that changed can be traced to what was added or removed.
struct ProcessResources {
    long rssKb = 0;     // VmRSS
    long anonKb = 0;    // RssAnon: the part of VmRSS that is not a mapped file
    long heapKb = 0;    // malloc's bytes in use, in kB (freed memory the allocator keeps is not counted)
    std::map<std::string, int> threadNames;     // comm -> threads of that name
    std::map<std::string, int> descriptorKinds; // "socket", "pipe", "anon_inode:[eventfd]", a path... -> count

    int threads() const { return total(threadNames); }
    int descriptors() const { return total(descriptorKinds); }
    double rssMb() const { return static_cast<double>(rssKb) / 1024.0; }

    static ProcessResources now()
    {
        ProcessResources resources;
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("VmRSS:", 0) == 0)
                resources.rssKb = std::stol(line.substr(6));
            else if (line.rfind("RssAnon:", 0) == 0)
                resources.anonKb = std::stol(line.substr(8));
        }
        const struct mallinfo2 heap = ::mallinfo2();
        resources.heapKb = static_cast<long>((heap.uordblks + heap.hblkhd) / 1024);
        for (const std::string& task : entries("/proc/self/task")) {
            std::ifstream comm("/proc/self/task/" + task + "/comm");
            std::string name;
            if (std::getline(comm, name))
                ++resources.threadNames[name];
        }
        for (const std::string& fd : entries("/proc/self/fd")) {
            char target[512];
            const ssize_t length = ::readlink(("/proc/self/fd/" + fd).c_str(), target, sizeof target - 1);
            if (length <= 0)
                continue; // the listing's own descriptor, closed by now
            ++resources.descriptorKinds[kindOf(std::string(target, static_cast<std::size_t>(length)))];
        }
        return resources;
    }

    // One line per name whose count differs: "+2 name" (more now) or "-1 name".
    static std::vector<std::string> differences(const std::map<std::string, int>& before,
                                                const std::map<std::string, int>& after)
    {
        std::map<std::string, int> change;
        for (const auto& [name, count] : after)
            change[name] += count;
        for (const auto& [name, count] : before)
            change[name] -= count;
        std::vector<std::string> lines;
        for (const auto& [name, delta] : change)
            if (delta != 0)
                lines.push_back((delta > 0 ? "+" : "") + std::to_string(delta) + " " + name);
        return lines;
    }

private:
    static int total(const std::map<std::string, int>& counts)
    {
        int sum = 0;
        for (const auto& entry : counts)
            sum += entry.second;
        return sum;
    }

    // The names in a /proc directory, without "." and "..". The directory's
    // own descriptor is open meanwhile; in /proc/self/fd its link is gone by
    // the time it is read.
    static std::vector<std::string> entries(const char* path)
    {
        std::vector<std::string> names;
        DIR* directory = ::opendir(path);
        if (!directory)
            return names;
        while (const dirent* entry = ::readdir(directory))
            if (entry->d_name[0] != '.')
                names.emplace_back(entry->d_name);
        ::closedir(directory);
        return names;
    }

    // Sockets and pipes by kind (their inode numbers differ every time), anything else as it is named.
    static std::string kindOf(const std::string& target)
    {
        for (const char* kind : {"socket:", "pipe:"})
            if (target.rfind(kind, 0) == 0)
                return std::string(kind, std::char_traits<char>::length(kind) - 1);
        return target;
    }
};

// "+2 name, -1 other" or "none".
inline std::string describeDifferences(const std::vector<std::string>& lines)
{
    if (lines.empty())
        return "none";
    std::ostringstream text;
    for (std::size_t i = 0; i < lines.size(); ++i)
        text << (i ? ", " : "") << lines[i];
    return text.str();
}
