#include "th/error.h"

#include <cerrno>
#include <cstring>

namespace {

int store(int *slot, int error, bool wanted) {
    if (wanted)
        *slot = error;
    return error;
}

int refuse_null_slot() {
    errno = EINVAL;
    return EINVAL;
}

}  // namespace

int th_sticky_error(int *slot, int error) {
    return slot ? store(slot, error, *slot == 0) : refuse_null_slot();
}

int th_sticky_error_last(int *slot, int error) {
    return slot ? store(slot, error, error != 0) : refuse_null_slot();
}

const char *th_strerror(int error) {
    const int saved = errno;
    const char *text = strerror(error);
    errno = saved;
    return text;
}
