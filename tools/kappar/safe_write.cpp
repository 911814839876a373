// Replacing a file so that no reader, crash or concurrent writer ever sees a mix: the text goes to
// a temporary file of its own beside the target, reaches the disk, and is renamed over the target.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>

#include "cli.h"

namespace kcli {
namespace {

// The temporary file being written, removed when the tool is interrupted (a kill -9 still leaves
// it behind, beside an untouched target).
char g_temp[4096];
volatile std::sig_atomic_t g_temp_set = 0;

extern "C" void remove_temp_and_die(int sig) {
    if (g_temp_set != 0) ::unlink(g_temp);
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

void install_cleanup() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        action.sa_handler = &remove_temp_and_die;
        sigemptyset(&action.sa_mask);
        ::sigaction(sig, &action, nullptr);
    }
}

std::string system_message(int error) {
    return std::strerror(error);
}

std::string type_name(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode)) return "a character device";
    if (S_ISBLK(mode)) return "a block device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

// The bits a new file gets from the process's umask.
mode_t new_file_mode() {
    static const mode_t mode = [] {
        const mode_t mask = ::umask(022);
        ::umask(mask);
        return static_cast<mode_t>(0666 & ~mask);
    }();
    return mode;
}

std::string temporary_name(const std::string& file) {
    static std::mt19937_64 random{std::random_device{}() ^
                                  (static_cast<std::uint64_t>(::getpid()) << 32)};
    static constexpr char kHexDigits[] = "0123456789abcdef";
    std::uint64_t x = random();
    std::string name = file + ".";
    for (int i = 0; i < 16; ++i, x >>= 4) {
        name += kHexDigits[x & 0xf];
    }
    return name + ".tmp";
}

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

// Makes the rename itself durable.
void sync_folder(const std::string& file) {
    const auto slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

}  // namespace

bool resolve_output(const std::string& path, OutputFile& target, std::string& error) {
    target = OutputFile{};
    target.file = path;
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        if (errno == ENOENT) return true;
        error = "cannot write '" + path + "': " + system_message(errno);
        return false;
    }
    if (S_ISLNK(st.st_mode)) {
        // The link stays a link: the file it leads to is the one replaced.
        char* real = ::realpath(path.c_str(), nullptr);
        if (real == nullptr) {
            error = "symbolic link to a file that cannot be reached (" + system_message(errno) +
                    "); nothing written";
            return false;
        }
        target.file = real;
        std::free(real);
        if (::stat(target.file.c_str(), &st) != 0) {
            error = "cannot write '" + target.file + "': " + system_message(errno);
            return false;
        }
    }
    if (!S_ISREG(st.st_mode)) {
        error = "not a regular file (" + type_name(st.st_mode) + "); nothing written";
        return false;
    }
    if ((st.st_mode & 0222) == 0 || ::access(target.file.c_str(), W_OK) != 0) {
        error = "the file is read-only; nothing written";
        return false;
    }
    if (st.st_nlink > 1) {
        // Replacing one name of a hard-linked file would leave the other names with the old
        // text, and writing into it in place could leave a mix when interrupted.
        error = "the file has " + std::to_string(st.st_nlink) +
                " hard links and would be split from them; nothing written";
        return false;
    }
    target.exists = true;
    target.mode = st.st_mode & 07777;
    target.uid = st.st_uid;
    target.gid = st.st_gid;
    return true;
}

bool write_output(const OutputFile& target, std::string_view text, std::string& error) {
    install_cleanup();
    std::string temp;
    int fd = -1;
    for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
        temp = temporary_name(target.file);
        fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
        error = "cannot create '" + temp + "': " + system_message(errno);
        return false;
    }
    if (temp.size() < sizeof g_temp) {
        std::memcpy(g_temp, temp.c_str(), temp.size() + 1);
        g_temp_set = 1;
    }
    auto give_up = [&](const std::string& what, int saved) {
        if (fd >= 0) ::close(fd);
        ::unlink(temp.c_str());
        g_temp_set = 0;
        error = what + ": " + system_message(saved);
        return false;
    };
    if (!write_all(fd, text)) return give_up("cannot write '" + temp + "'", errno);
    if (target.exists) {
        // The owner is kept where the system permits it; the mode always.
        if (::fchown(fd, target.uid, target.gid) != 0) {
            [[maybe_unused]] const int ignored = ::fchown(fd, static_cast<uid_t>(-1), target.gid);
        }
        if (::fchmod(fd, target.mode) != 0)
            return give_up("cannot set the mode of '" + temp + "'", errno);
    } else if (::fchmod(fd, new_file_mode()) != 0) {
        return give_up("cannot set the mode of '" + temp + "'", errno);
    }
    if (::fsync(fd) != 0) return give_up("cannot write '" + temp + "'", errno);
    const int closed = ::close(fd);
    fd = -1;
    if (closed != 0) return give_up("cannot write '" + temp + "'", errno);
    if (::rename(temp.c_str(), target.file.c_str()) != 0) {
        return give_up("cannot replace '" + target.file + "'", errno);
    }
    g_temp_set = 0;
    sync_folder(target.file);
    return true;
}

}  // namespace kcli
