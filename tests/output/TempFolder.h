#pragma once

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>

namespace pv::test {

// A fresh folder per test, removed with everything in it afterwards. Readable by everyone, so
// that a child running as "nobody" can reach it.
class TempFolder {
  public:
    TempFolder() {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/pv-output-XXXXXX";
        path_ = ::mkdtemp(pattern.data());
        ::chmod(path_.c_str(), 0755);
    }
    ~TempFolder() {
        std::error_code ignored;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path_, ignored)) {
            if (entry.is_directory()) {
                ::chmod(entry.path().c_str(), 0755);
            }
        }
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Every name in a folder, hidden ones included: a leftover temporary shows up here.
inline std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Runs `work` in a child process and answers the text it returns. Limits, umask, working folder
// and dropped privileges set inside stay there.
inline std::string inChild(const std::function<std::string()>& work) {
    int fds[2];
    if (::pipe(fds) != 0) {
        return "pipe failed";
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        const std::string text = work();
        [[maybe_unused]] ssize_t n = ::write(fds[1], text.data(), text.size());
        ::_exit(0);
    }
    ::close(fds[1]);
    std::string text;
    char buffer[256];
    ssize_t n;
    while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0) {
        text.append(buffer, std::size_t(n));
    }
    ::close(fds[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return text;
}

// Root ignores folder permissions, so permission failures are tested as "nobody".
inline bool dropRoot() {
    if (::geteuid() != 0) {
        return true;
    }
    return ::setgid(65534) == 0 && ::setuid(65534) == 0;
}

}  // namespace pv::test
