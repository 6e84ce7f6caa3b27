#include "output.h"

#include "common.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace kevra_cli {

namespace {

// Registered temporary files, readable from a signal handler: a slot is free
// (0) or holds a path (2). The handler takes no lock and reads only published
// slots; the threads of a parallel batch serialise registering and
// unregistering, so that no thread compares a path another thread rewrites.
constexpr int slot_count = 64;
constexpr std::size_t path_max = 4096;
char g_paths[slot_count][path_max];
std::atomic<int> g_state[slot_count];
std::mutex g_slots_lock;

extern "C" void remove_temporaries_and_die(int sig)
{
    for (int i = 0; i < slot_count; ++i)
        if (g_state[i].load() == 2)
            ::unlink(g_paths[i]);
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

std::string system_reason(int e)
{
    return std::strerror(e);
}

std::string temp_dir()
{
    const char * tmp = std::getenv("TMPDIR");
    std::string dir = tmp != nullptr && *tmp != 0 ? tmp : "/tmp";
    return dir.back() == '/' ? dir : dir + "/";
}

std::string dir_of(const std::string & path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string base_of(const std::string & path)
{
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Copies the file `from` to the open descriptor `fd`.
void copy_to(const std::string & from, int fd, const std::string & shown)
{
    const int in = ::open(from.c_str(), O_RDONLY);
    if (in < 0)
        throw Failure(shown + ": cannot write: " + system_reason(errno));
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(in, buf, sizeof buf);
        if (n == 0)
            break;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            const int e = errno;
            ::close(in);
            throw Failure(shown + ": cannot write: " + system_reason(e));
        }
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = ::write(fd, buf + done, static_cast<std::size_t>(n - done));
            if (w < 0) {
                if (errno == EINTR)
                    continue;
                const int e = errno;
                ::close(in);
                throw Failure(shown + ": cannot write: " + system_reason(e));
            }
            done += w;
        }
    }
    ::close(in);
}

// Encodes into a temporary file elsewhere, then copies it to `fd`: devices,
// pipes and standard output cannot be renamed over.
void write_direct(int fd, const std::string & shown, const std::function<void(const std::string &)> & encode)
{
    const std::string temp = make_temporary(temp_dir(), "kevra-output", shown);
    try {
        encode(temp);
        copy_to(temp, fd, shown);
    } catch (...) {
        remove_temporary(temp);
        throw;
    }
    remove_temporary(temp);
}

// The file a chain of symbolic links ends at (which may not exist yet).
std::string link_target(const std::string & path, const std::string & shown)
{
    std::string p = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st {};
        if (::lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode))
            return p;
        char buf[path_max];
        const ssize_t n = ::readlink(p.c_str(), buf, sizeof buf - 1);
        if (n < 0)
            throw Failure(shown + ": cannot write: " + system_reason(errno));
        const std::string target(buf, static_cast<std::size_t>(n));
        p = !target.empty() && target[0] == '/' ? target : dir_of(p) + target;
    }
    throw Failure(shown + ": cannot write: " + system_reason(ELOOP));
}

} // namespace

void install_cleanup_handlers()
{
    for (int sig : {SIGINT, SIGTERM, SIGHUP})
        std::signal(sig, remove_temporaries_and_die);
}

void register_temporary(const std::string & path)
{
    if (path.size() >= path_max)
        return;
    const std::lock_guard<std::mutex> lock(g_slots_lock);
    for (int i = 0; i < slot_count; ++i) {
        if (g_state[i].load() == 0) {
            std::memcpy(g_paths[i], path.c_str(), path.size() + 1);
            g_state[i].store(2);
            return;
        }
    }
}

void unregister_temporary(const std::string & path)
{
    const std::lock_guard<std::mutex> lock(g_slots_lock);
    for (int i = 0; i < slot_count; ++i) {
        if (g_state[i].load() == 2 && path == g_paths[i]) {
            g_state[i].store(0);
            return;
        }
    }
}

std::string make_temporary(const std::string & dir, const std::string & base, const std::string & shown)
{
    static std::atomic<unsigned> serial{0};
    for (;;) {
        const std::string temp = dir + "." + base + ".kevra-" + std::to_string(::getpid()) + "-" +
                                 std::to_string(serial.fetch_add(1)) + ".tmp";
        // Registered before it exists, so that a signal cannot leave it behind.
        register_temporary(temp);
        const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
        if (fd >= 0) {
            ::close(fd);
            return temp;
        }
        const int e = errno;
        unregister_temporary(temp);
        if (e != EEXIST)
            throw Failure(shown + ": cannot write: " + system_reason(e));
    }
}

void remove_temporary(const std::string & path)
{
    ::unlink(path.c_str());
    unregister_temporary(path);
}

void write_output(const std::string & path, const std::function<void(const std::string & file)> & encode)
{
    if (path == "-") {
        write_direct(STDOUT_FILENO, "standard output", encode);
        return;
    }
    struct stat st {};
    const bool exists = ::stat(path.c_str(), &st) == 0;
    if (exists && S_ISDIR(st.st_mode))
        throw Failure(path + ": is a directory");
    // Devices, pipes, sockets, and the system's names for open files
    // (/dev/stdout, /proc/self/fd/N) are written in place.
    if ((exists && !S_ISREG(st.st_mode)) || path.compare(0, 5, "/dev/") == 0 || path.compare(0, 6, "/proc/") == 0) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (fd < 0)
            throw Failure(path + ": cannot write: " + system_reason(errno));
        try {
            write_direct(fd, path, encode);
        } catch (...) {
            ::close(fd);
            throw;
        }
        if (::close(fd) != 0)
            throw Failure(path + ": cannot write: " + system_reason(errno));
        return;
    }
    // A regular file, new or existing, possibly behind symbolic links: the
    // complete new file is renamed over the link's target.
    const std::string target = link_target(path, path);
    const std::string base = base_of(target);
    if (base.empty() || base == "." || base == "..")
        throw Failure(path + ": not a file name");
    const std::string temp = make_temporary(dir_of(target), base, path);
    try {
        encode(temp);
        if (exists)
            ::chmod(temp.c_str(), st.st_mode & 07777);
        if (std::rename(temp.c_str(), target.c_str()) != 0)
            throw Failure(path + ": cannot write: " + system_reason(errno));
    } catch (...) {
        remove_temporary(temp);
        throw;
    }
    unregister_temporary(temp);
}

std::string read_standard_input()
{
    static bool read_once = false;
    if (read_once)
        throw UsageError("-: standard input can be read only once");
    read_once = true;
    const std::string temp = make_temporary(temp_dir(), "kevra-input", "standard input");
    const int fd = ::open(temp.c_str(), O_WRONLY | O_TRUNC);
    if (fd < 0) {
        const int e = errno;
        remove_temporary(temp);
        throw Failure("standard input: cannot be stored: " + system_reason(e));
    }
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buf, sizeof buf);
        if (n == 0)
            break;
        if (n < 0 && errno == EINTR)
            continue;
        bool ok = n > 0;
        for (ssize_t done = 0; ok && done < n;) {
            const ssize_t w = ::write(fd, buf + done, static_cast<std::size_t>(n - done));
            if (w < 0 && errno == EINTR)
                continue;
            ok = w > 0;
            done += w > 0 ? w : 0;
        }
        if (!ok) {
            const int e = errno;
            ::close(fd);
            remove_temporary(temp);
            throw Failure("standard input: cannot be stored: " + system_reason(e));
        }
    }
    ::close(fd);
    return temp;
}

} // namespace kevra_cli
