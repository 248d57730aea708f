#include "task_names.h"

#include "io/file_descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace halmor_standin {

using io::FileDescriptor;

namespace {

// One file name per task name, whatever characters that has.
std::string lock_path(const std::string& name) {
    std::string path = "/tmp/halmor_standin_";
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        char code[4];
        std::snprintf(code, sizeof code, "%%%02X", byte);
        path += std::isalnum(byte) != 0 || byte == '_' ? std::string(1, character) : code;
    }
    return path + ".lock";
}

constexpr int open_flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;

FileDescriptor open_existing(const std::string& path) {
    return FileDescriptor(open(path.c_str(), open_flags));
}

// Any user of the machine may take the name after the file's maker has given it up. Making and
// opening are two steps, since a shared /tmp may refuse O_CREAT on a file that somebody else made.
FileDescriptor open_or_make(const std::string& path) {
    FileDescriptor made(open(path.c_str(), open_flags | O_CREAT | O_EXCL, 0666));
    if (made.get() < 0)
        return open_existing(path);
    fchmod(made.get(), 0666);
    return made;
}

// Locks of open files belong to the descriptor, so a task also finds its own.
struct flock whole_file() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

} // namespace

int task_of_name(const std::string& name) {
    const FileDescriptor file = open_existing(lock_path(name));
    struct flock lock = whole_file();
    if (file.get() < 0 || fcntl(file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return -1;
    char holder[16] = {};
    return pread(file.get(), holder, sizeof holder - 1, 0) > 0 ? std::atoi(holder) : 0;
}

std::int16_t take_name(const std::string& name) {
    static std::mutex mutex;
    static std::vector<FileDescriptor> held;
    FileDescriptor file = open_or_make(lock_path(name));
    struct flock lock = whole_file();
    if (file.get() < 0 || fcntl(file.get(), F_OFD_SETLK, &lock) != 0)
        return -1;
    const std::string holder = std::to_string(getpid());
    if (ftruncate(file.get(), 0) != 0 || pwrite(file.get(), holder.c_str(), holder.size(), 0) < 0)
        return -1;
    const std::lock_guard guard(mutex);
    held.push_back(std::move(file));
    return static_cast<std::int16_t>(held.size());
}

} // namespace halmor_standin
