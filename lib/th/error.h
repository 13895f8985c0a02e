// Helpers for error numbers.  Complete interface; mktfs uses all but th_sticky_error_last.
#pragma once

// Returns an error number, which is then in errno as well, or 0, which leaves errno.
int th_result(int error);

// For a sequence of steps that all run, whatever fails.  Both return `error`;
// EINVAL, also in errno, for a null slot.
// Keeps the first error: stores `error` while the slot is 0.
int th_sticky_error(int *slot, int error);
// Keeps the last error: stores `error` unless it is 0.
int th_sticky_error_last(int *slot, int error);

// The text of an error number.  Keeps errno; the text is valid until the
// thread's next call.
[[nodiscard]] const char *th_strerror(int error);
