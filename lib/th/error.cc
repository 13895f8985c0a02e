#include "th/error.h"

#include <cerrno>
#include <cstring>

namespace {

int store(int *slot, int error, bool wanted) {
    if (wanted)
        *slot = error;
    return error;
}

}  // namespace

int th_result(int error) {
    if (error != 0)
        errno = error;
    return error;
}

int th_sticky_error(int *slot, int error) {
    return slot ? store(slot, error, *slot == 0) : th_result(EINVAL);
}

int th_sticky_error_last(int *slot, int error) {
    return slot ? store(slot, error, error != 0) : th_result(EINVAL);
}

const char *th_strerror(int error) {
    const int saved = errno;
    const char *text = strerror(error);
    errno = saved;
    return text;
}
