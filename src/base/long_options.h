// The command line of the programs that take long options only: a table says what each
// option does, and -h, --help and --version are understood by all.
#pragma once

#include <getopt.h>

#include <array>
#include <cstddef>

inline constexpr int MKTFS_USAGE_ERROR = 1;  // exit status

// What every program keeps of its options; its own settings derive from it.
struct mktfs_option_state {
    unsigned given = 0;             // bits of the options
    const char *message = nullptr;  // help or version, printed instead of working; static
};

template <class Settings>
struct mktfs_long_option {
    const char *name;
    unsigned bit;      // in mktfs_option_state::given
    int has_argument;  // no_argument or required_argument
    // 0, or the exit status after a report.  Null: there is nothing to do but set the bit.
    int (*set)(Settings &to, const char *argument) = nullptr;
};

// Reads the options up to the first help or version, which ends the command line; the
// operands begin at optind.  0, MKTFS_USAGE_ERROR after getopt's own report, or what an
// option's function returned.
template <class Settings, std::size_t N>
[[nodiscard]] int mktfs_read_options(int argc, char **argv, const mktfs_long_option<Settings> (&known)[N],
                                     const char *usage, const char *version, Settings &to) {
    constexpr int HELP = 'h', VERSION = 255, FIRST = 256;
    std::array<option, N + 3> rows = {
        {{"help", no_argument, nullptr, HELP}, {"version", no_argument, nullptr, VERSION}}};
    for (std::size_t i = 0; i < N; ++i)
        rows[i + 2] = {known[i].name, known[i].has_argument, nullptr, FIRST + static_cast<int>(i)};
    while (!to.message) {
        const int code = getopt_long(argc, argv, "h", rows.data(), nullptr);
        if (code == -1)
            break;
        if (code == '?')
            return MKTFS_USAGE_ERROR;
        if (code < FIRST) {
            to.message = code == HELP ? usage : version;
            continue;
        }
        const mktfs_long_option<Settings> &row = known[code - FIRST];
        if (const int err = row.set ? row.set(to, optarg) : 0; err != 0)
            return err;
        to.given |= row.bit;
    }
    return 0;
}
