#include "info/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned MIN_COLUMNS = 40;
constexpr unsigned MAX_COLUMNS = 100;

}  // namespace

int ttdinfo_write(const char *text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0) {
            const int err = errno;
            std::fprintf(stderr, "ttdinfo: standard output: %s\n", std::strerror(err));
            return err;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    return 0;
}

unsigned ttdinfo_columns() {
    winsize window = {};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col < MIN_COLUMNS)
        return 0;
    return std::min<unsigned>(window.ws_col, MAX_COLUMNS);
}

ttdinfo_output::ttdinfo_output() : file_(::open_memstream(&text_, &length_)) {}

ttdinfo_output::~ttdinfo_output() {
    if (file_)
        std::fclose(file_);
    std::free(text_);
}

int ttdinfo_output::write() {
    const bool failed = std::fclose(file_) != 0;
    file_ = nullptr;
    return failed ? ENOMEM : ttdinfo_write(text_, length_);
}
