#include "base/host.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "base/log.h"
#include "th/file.h"

namespace {

constexpr int RMTREE_DESCRIPTORS = 64;

int size_of_status(const struct stat &status, std::uint64_t *size) {
    if (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode))
        return ESPIPE;
    *size = static_cast<std::uint64_t>(status.st_size);
    return 0;
}

int size_of_device(const char *path, std::uint64_t *size) {
    th_file device;
    if (const int err = device.open(path); err != 0)
        return err;
    *size = device.size();
    return 0;
}

bool leads_nowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == EACCES || error == ELOOP || error == ENAMETOOLONG;
}

// The status of what the path leads to; `found` is false when that is nothing.
int look_at(const char *path, struct stat &status, bool &found) {
    found = path && ::stat(path, &status) == 0;
    return found || !path || leads_nowhere(errno) ? 0 : errno;
}

// Whether the absolute, resolved path or one of its parents is `folder`.  Shortens the
// path on its way up.
int climb_to(std::string path, const struct stat &folder, bool &reached) {
    for (;;) {
        struct stat status {};
        if (::stat(path.empty() ? "/" : path.c_str(), &status) != 0)
            return errno;
        reached = mktfs_same_object(status, folder);
        if (reached || path.empty())
            return 0;
        path.erase(path.rfind('/'));
    }
}

// The folder in which the name `path` itself stands.
std::string parent_of(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    return std::string(path.substr(0, slash == 0 ? 1 : slash));
}

int resolve_below(const char *path, const struct stat &folder, bool &below) {
    char resolved[PATH_MAX];
    if (::realpath(path, resolved))
        return climb_to(resolved, folder, below);
    return leads_nowhere(errno) ? 0 : errno;
}

const char *first_set_variable() {
    for (const char *name : {"TMPDIR", "TEMP", "TMP"}) {
        if (const char *value = std::getenv(name))
            return value;
    }
    return "/tmp";
}

// Calls piece(text) for every part of the result, in order.
template <class Piece>
void replace_in(std::string_view source, std::string_view needle, std::string_view replacement, Piece piece) {
    for (;;) {
        const std::size_t found = source.find(needle);
        piece(source.substr(0, found));
        if (found == std::string_view::npos)
            return;
        piece(replacement);
        source.remove_prefix(found + needle.size());
    }
}

}  // namespace

int mktfs_file_size(const char *path, std::uint64_t *size) {
    if (!size)
        return EINVAL;
    *size = 0;
    if (!path)
        return EINVAL;
    struct stat status {};
    if (::stat(path, &status) != 0)
        return errno;
    return S_ISBLK(status.st_mode) ? size_of_device(path, size) : size_of_status(status, size);
}

int mktfs_fd_size(int descriptor, std::uint64_t *size) {
    if (!size)
        return EINVAL;
    *size = 0;
    struct stat status {};
    return ::fstat(descriptor, &status) != 0 ? errno : size_of_status(status, size);
}

bool mktfs_same_object(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool mktfs_is_sparse(const struct stat &status) {
    constexpr blkcnt_t unit = 512;  // of st_blocks, bytes
    return S_ISREG(status.st_mode) && status.st_blocks * unit < status.st_size;
}

int mktfs_strreplace(const char *source, const char *needle, const char *replacement, char *out,
                     std::size_t capacity) {
    if (!source || !needle || *needle == '\0' || !replacement || !out)
        return EINVAL;
    std::size_t room = capacity;
    bool fits = true;
    replace_in(source, needle, replacement, [&](std::string_view piece) {
        fits = fits && piece.size() < room;  // less: the terminator needs a place too
        room -= fits ? piece.size() : 0;
    });
    if (!fits)
        return EINVAL;
    replace_in(source, needle, replacement, [&](std::string_view piece) {
        std::memcpy(out, piece.data(), piece.size());
        out += piece.size();
    });
    *out = '\0';
    return 0;
}

int mktfs_read_file(const char *path, std::span<std::uint8_t> room, std::size_t *length) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path, "rbe"), std::fclose);
    if (!file)
        return errno;
    *length = std::fread(room.data(), 1, room.size(), file.get());
    return std::ferror(file.get()) != 0 ? errno : 0;
}

int mktfs_unlink_cb(const char *path, const struct stat *, int, struct FTW *) {
    const int result = std::remove(path);
    if (result != 0)
        mktfs_log(MKTFS_LOG_ERROR, "failed to remove '%s' (%s)\n", path, std::strerror(errno));
    return result;
}

void mktfs_rmtree(const char *folder) {
    if (folder)
        ::nftw(folder, mktfs_unlink_cb, RMTREE_DESCRIPTORS, FTW_DEPTH | FTW_MOUNT | FTW_PHYS);
}

const char *mktfs_tmpdir() {
    static const std::string folder = first_set_variable();  // a copy: the environment may change
    return folder.c_str();
}

int mktfs_same_file(const char *a, const char *b, bool *same) {
    struct stat status_a {
    }, status_b{};
    bool found_a = false, found_b = false;
    *same = false;
    if (const int err = look_at(a, status_a, found_a); err != 0)
        return err;
    if (const int err = look_at(b, status_b, found_b); err != 0)
        return err;
    *same = found_a && found_b && mktfs_same_object(status_a, status_b);
    return 0;
}

int mktfs_path_is_inside(const char *path, const char *folder, bool *inside) {
    *inside = false;
    struct stat status {};
    bool found = false;
    if (const int err = look_at(folder, status, found); err != 0)
        return err;
    if (!found || !path)
        return 0;
    if (const int err = resolve_below(path, status, *inside); err != 0 || *inside)
        return err;
    return resolve_below(parent_of(path).c_str(), status, *inside);
}

int mktfs_claim_file(const char *path, int descriptor) {
    struct stat status {
    }, named{};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    struct flock whole_file {};  // from the start, without an end
    whole_file.l_type = F_WRLCK;
    if (::fcntl(descriptor, F_OFD_SETLK, &whole_file) != 0 && (errno == EAGAIN || errno == EACCES))
        return EAGAIN;
    // Its last owner may have removed it between the caller's open and the lock.
    bool found = false;
    const bool known = look_at(path, named, found) == 0;
    return known && !(found && mktfs_same_object(status, named)) ? EAGAIN : 0;
}
