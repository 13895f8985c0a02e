// The logger: messages go through named contexts to standard error and
// standard output, each with its own level.  The environment decides (see
// th_log_update_config for the syntax); without it notices and worse go to
// standard error.
//
// A source file that logs defines its context once at namespace scope and names
// it in every message:
//
//     TH_LOG_CONTEXT_DEFINE(example_log, "example");
//     TH_LOG(example_log, TH_LOG_ERROR, "no such entry '%s'\n", name);
//
// which prints "example: no such entry 'x' [example.cc(12)]".
//
// The context registers before main and is destroyed at exit.  The order among
// source files does not matter: a message of a context that is not registered
// yet, or no longer, goes through the context "default".  In a static library
// put the definition into a source file that callers need anyway, or the linker
// leaves the context out.
//
// Complete interface of the logger; mktfs uses TH_LOG, th_log_ex, its contexts and
// th_log_update_config.  Messages are in log.cc, contexts in log_context.cc, the
// configuration in log_state.cc.
//
// Every function may be called from any thread.  Lock order: the overall mutex,
// one context's mutex, the mutex of the buffer for long messages.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

struct th_log_context;

enum th_log_level : std::int32_t {
    TH_LOG_DEFAULT = -1,  // in a configuration: as the default context
    TH_LOG_NONE = 0,
    TH_LOG_SHUTDOWN = 1,
    TH_LOG_CRITICAL = 2,
    TH_LOG_ERROR = 3,
    TH_LOG_WARNING = 4,
    TH_LOG_NOTICE = 5,
    TH_LOG_INFO = 6,
    TH_LOG_DEBUG1 = 7,
    TH_LOG_DEBUG2 = 8,
    TH_LOG_ALL = 255,
};

// Destination bits.  The system loggers keep their settings but print nothing.
inline constexpr std::uint32_t TH_LOG_STDOUT = 0x100000;
inline constexpr std::uint32_t TH_LOG_STDERR = 0x200000;
inline constexpr std::uint32_t TH_LOG_XLOG = 0x400000;
inline constexpr std::uint32_t TH_LOG_XLOG2 = 0x800000;
inline constexpr std::uint32_t TH_LOG_ALL_DESTINATIONS = 0xFFF00000;
// An enabled bit shifted down by this is the bit that disables the destination.
inline constexpr unsigned TH_LOG_DISABLE_SHIFT = 12;

// Message flags, to be added to the level of a call site.
inline constexpr std::uint64_t TH_LOG_FLAG_LEVEL_MASK = 0xFF;  // the level; 0 means info
inline constexpr std::uint64_t TH_LOG_FLAG_NO_STDOUT = std::uint64_t{1} << 8;
inline constexpr std::uint64_t TH_LOG_FLAG_NO_STDERR = std::uint64_t{1} << 9;
inline constexpr std::uint64_t TH_LOG_FLAG_STDOUT = std::uint64_t{1} << 20;  // even where stdout is disabled
inline constexpr std::uint64_t TH_LOG_FLAG_STDERR = std::uint64_t{1} << 21;  // even where stderr is disabled
inline constexpr std::uint64_t TH_LOG_FLAG_THREAD_ID = std::uint64_t{1} << 32;

// One per logging statement, static.
struct th_log_call_site {
    std::uint32_t line = 0;                    // 0: unknown
    const char *file = nullptr;                // may be null
    bool whole_file_name = false;              // false: print what follows the last '/' or '\'
    const char *function = nullptr;            // may be null
    std::uint64_t flags = 0;                   // level and TH_LOG_FLAG_* bits
    th_log_context *const *context = nullptr;  // the context variable; null: the context "default"
};

// ---- Messages.  All keep the caller's errno.

// Writes one line: the context's name, the message without the blanks, tabs and
// newlines at the end of `format`, and the call site's location.  A null call
// site stands for one without location at level info in the context "default".
// EINVAL: null `format`; ENOMEM: no room for a long message, which was written
// cut; else the error of the formatting or of the write.
[[gnu::format(printf, 2, 3)]] int th_log_ex(const th_log_call_site *site, const char *format, ...);
[[gnu::format(printf, 2, 0)]] int th_vlog_ex(const th_log_call_site *site, const char *format,
                                             std::va_list arguments);
// Like th_log_ex, with a blank and the `length` bytes at `data` in hexadecimal
// after the message.  EINVAL also for null `data` with a nonzero length.
[[gnu::format(printf, 4, 5)]] int th_log_bin_ex(const th_log_call_site *site, const void *data,
                                                std::size_t length, const char *format, ...);

// Whether a message of this call site would be written anywhere.
[[nodiscard]] bool th_log_check(const th_log_call_site *site);

// Nothing for error 0; else logs at critical level with the place of `site`,
// "critical failure: WHAT (ERROR, TEXT). Calling abort().", without TEXT for a
// negative error, and aborts.
void th_abort_on_errno(const th_log_call_site *site, int error, const char *what);

// ---- Contexts.  These and all that follow return 0 or an error number, which
// is also in errno then.

// Registers the context `name` (31 characters of it, normalized) for a module's
// variable; a second call with the same name is accepted.  The logger owns the
// context.  EINVAL: null argument or empty name; EEXIST: the variable holds a
// context of another name; ENOMEM.  The variable is unchanged on failure.
int th_log_context_create(const char *name, th_log_context **variable);
// Sets the variable to null; waits for a message that is being written.  An
// unregistered variable is left alone.  EINVAL: null argument.
int th_log_context_destroy(th_log_context **variable);

// Replaces in place what a context name may not contain by '_', and the first
// character of the reserved names "default", "th" and "all".  EINVAL: null or
// empty name.
int th_log_context_normalize_name(char *name);

// ---- Configuration

// Applies NAME[:ITEM,ITEM...][;NAME...] to contexts alive and to come.  NAME:
// a context, "default" or "all".  ITEM: "default" (follow the default context
// everywhere) or [~]DESTINATION[=LEVEL]: "stdout", "stderr", "xlog", "xlog2" or
// "all"; "none", "shutdown", "critical", "error", "warning", "notice", "info",
// "debug1", "debug2", "all", or "default" for a destination that follows the
// default context.  '~' disables the destination.
// EPERM: the environment's configuration is locked; EINVAL: null or malformed
// text; ENAMETOOLONG: a name above 31 characters; ENOMEM.  On failure nothing
// of the text is applied.
int th_log_update_config(const char *text);

// For programs that people run from a command line: starts again from errors
// only on standard error, then applies TH_LOG_CONFIG_CTX_CL, also when the
// configuration is locked.  Returns the error of a variable that was refused,
// after it was logged and the settings put back.
int th_log_set_cl_mode();

// The level of one destination (one of the four bits).  EINVAL: null argument or
// another destination; ENOENT: no such context.  For a name that only a
// configuration has mentioned so far, and for "all", the answer is what a new
// context of that kind would get.
int th_log_get_verbosity(th_log_context *const *variable, std::uint32_t destination, std::int32_t *level);
int th_log_get_verbosity_by_name(const char *name, std::uint32_t destination, std::int32_t *level);
// The enabled destination bits.  Errors as above.
int th_log_get_destinations_by_name(const char *name, std::uint32_t *destinations);

// For debugging: writes "TITLE: CONFIGURATION" to standard error, the latter as
// th_log_update_config reads it.  EINVAL: null argument; ENOENT: not registered.
int th_log_dump_context_config(const char *title, th_log_context *const *variable);

// ---- What the macros use

// Registers in its constructor, which aborts with a message on failure.
class th_log_registration {
public:
    th_log_registration(const char *name, th_log_context **variable);
    ~th_log_registration();
    th_log_registration(const th_log_registration &) = delete;
    th_log_registration &operator=(const th_log_registration &) = delete;

private:
    th_log_context **variable_;
};

#define TH_LOG_CONTEXT_DECLARE(variable) extern th_log_context *variable

#define TH_LOG_CONTEXT_DEFINE(variable, name)                                                                \
    constinit th_log_context *variable = nullptr;                                                            \
    static const th_log_registration variable##_registration(name, &variable)

#ifdef __FILE_NAME__
#define TH_LOG_FILE_NAME __FILE_NAME__
#else
#define TH_LOG_FILE_NAME __FILE__
#endif

// A statement; `level` is a constant, with TH_LOG_FLAG_* bits if wanted.
#define TH_LOG(variable, level, ...)                                                                         \
    do {                                                                                                     \
        static constinit const th_log_call_site th_log_site = {                                              \
            .line = __LINE__,                                                                                \
            .file = TH_LOG_FILE_NAME,                                                                        \
            .whole_file_name = false,                                                                        \
            .function = nullptr,                                                                             \
            .flags = static_cast<std::uint64_t>(level),                                                      \
            .context = &(variable),                                                                          \
        };                                                                                                   \
        th_log_ex(&th_log_site, __VA_ARGS__);                                                                \
    } while (false)
