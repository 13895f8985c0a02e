#include "sign/cmdline.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/cleanup.h"
#include "base/log.h"
#include "base/long_options.h"
#include "sign/commands.h"
#include "tcrypto/tcrypto.h"
#include "th/str.h"
#include "ttd/engine_log.h"
#include "ttd/format.h"

namespace {

constexpr char usage_text[] =
    "usage: ttdsign message [--digest] [--output FILE] IMAGE\n"
    "       ttdsign join --key PUBLIC [--dry-run] [--json] IMAGE SIGNATURE\n"
    "       ttdsign resign --signature TYPE --key PRIVATE (--old-key PUBLIC | --unchecked)\n"
    "                      [--rollback N] [--dry-run] [--json] IMAGE...\n"
    "\n"
    "Signs ttd images that exist already.  Only the last 4096 bytes of an image are read and\n"
    "written; it holds the old or the new superblock whenever the run ends.\n"
    "\n"
    "  message              write the bytes that a key elsewhere is to sign\n"
    "  join                 put the signature of those bytes into the image\n"
    "  resign               sign images anew, with another key or version\n"
    "\n"
    "  --digest             write the SHA-256 digest of the bytes (rsa-sha256, ecdsa-sha256)\n"
    "  --output FILE        write to a file instead of standard output\n"
    "  --key KEY            join: PEM public key that must prove the signature;\n"
    "                       resign: PEM private key to sign with\n"
    "  --signature TYPE     rsa-sha256, ecdsa-sha256, eddsa-25519 or eddsa-448\n"
    "  --old-key PUBLIC     PEM public key that must prove the present signature\n"
    "  --unchecked          sign whatever the present signature is\n"
    "  --rollback N         set the anti-rollback version\n"
    "  --dry-run            check and sign in memory, change no image\n"
    "  --json               print a JSON object\n"
    "  -h, --help           print this help\n"
    "  --version            print the version\n";

[[gnu::format(printf, 1, 2)]] int wrong_usage(const char *format, ...) {
    std::fputs("ttdsign: ", stderr);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputs(", see --help\n", stderr);
    return MKTFS_USAGE_ERROR;
}

struct command_line : mktfs_option_state {
    ttdsign_settings settings;
};

template <auto Field>
int set_flag(command_line &to, const char *) {
    to.settings.*Field = true;
    return 0;
}

template <auto Field>
int set_text(command_line &to, const char *text) {
    to.settings.*Field = text;
    return 0;
}

int set_signature_type(command_line &to, const char *name) {
    to.settings.sigtype = ttd_sig_type(name);
    return to.settings.sigtype != 0 ? 0 : wrong_usage("unknown signature type '%s'", name);
}

int set_rollback(command_line &to, const char *text) {
    std::uint64_t &rollback = to.settings.rollback.emplace();
    return th_str_to_uint64(text, 10, &rollback) == 0 ? 0 : wrong_usage("invalid rollback value '%s'", text);
}

enum option_bit : unsigned {
    OPTION_DIGEST = 1 << 0,
    OPTION_OUTPUT = 1 << 1,
    OPTION_KEY = 1 << 2,
    OPTION_SIGNATURE = 1 << 3,
    OPTION_OLD_KEY = 1 << 4,
    OPTION_UNCHECKED = 1 << 5,
    OPTION_ROLLBACK = 1 << 6,
    OPTION_DRY_RUN = 1 << 7,
    OPTION_JSON = 1 << 8,
};

constexpr mktfs_long_option<command_line> options[] = {
    {"digest", OPTION_DIGEST, no_argument, set_flag<&ttdsign_settings::digest>},
    {"output", OPTION_OUTPUT, required_argument, set_text<&ttdsign_settings::output>},
    {"key", OPTION_KEY, required_argument, set_text<&ttdsign_settings::key>},
    {"signature", OPTION_SIGNATURE, required_argument, set_signature_type},
    {"old-key", OPTION_OLD_KEY, required_argument, set_text<&ttdsign_settings::old_key>},
    {"unchecked", OPTION_UNCHECKED, no_argument, set_flag<&ttdsign_settings::unchecked>},
    {"rollback", OPTION_ROLLBACK, required_argument, set_rollback},
    {"dry-run", OPTION_DRY_RUN, no_argument, set_flag<&ttdsign_settings::dry_run>},
    {"json", OPTION_JSON, no_argument, set_flag<&ttdsign_settings::json>},
};

// A command, the options that it takes, those that it needs, and its operands.
struct command {
    const char *name;
    int (*run)(const ttdsign_settings &with);
    unsigned takes;
    unsigned needs;
    int min_operands;
    int max_operands;
};

constexpr command commands[] = {
    {"message", ttdsign_message, OPTION_DIGEST | OPTION_OUTPUT, 0, 1, 1},
    {"join", ttdsign_join, OPTION_KEY | OPTION_DRY_RUN | OPTION_JSON, OPTION_KEY, 2, 2},
    {"resign", ttdsign_resign,
     OPTION_SIGNATURE | OPTION_KEY | OPTION_OLD_KEY | OPTION_UNCHECKED | OPTION_ROLLBACK | OPTION_DRY_RUN |
         OPTION_JSON,
     OPTION_SIGNATURE | OPTION_KEY, 1, INT_MAX},
};

const command *find_command(const char *name) {
    for (const command &known : commands)
        if (std::strcmp(known.name, name) == 0)
            return &known;
    return nullptr;
}

const char *option_name(unsigned bits) {
    for (const auto &known : options)
        if ((known.bit & bits) != 0)
            return known.name;
    return "";
}

int check_options(const command &what, const command_line &line) {
    if (const unsigned strange = line.given & ~what.takes; strange != 0)
        return wrong_usage("%s takes no --%s", what.name, option_name(strange));
    if (const unsigned missing = what.needs & ~line.given; missing != 0)
        return wrong_usage("%s needs --%s", what.name, option_name(missing));
    if (what.run == ttdsign_resign && (line.settings.old_key != nullptr) == line.settings.unchecked)
        return wrong_usage("resign needs either --old-key or --unchecked");
    return 0;
}

int take_operands(const command &what, int count, char **operands, ttdsign_settings &to) {
    if (count < what.min_operands)
        return wrong_usage(count == 1 ? "missing signature" : "missing image");
    if (count > what.max_operands)
        return wrong_usage("more operands than %s takes", what.name);
    if (what.run == ttdsign_join)
        to.signature = operands[--count];
    to.images = {operands, static_cast<std::size_t>(count)};
    return 0;
}

// The engine's errors and warnings; some of its texts lack a line end.
[[gnu::format(printf, 2, 3)]] int print_complaint(int level, const char *format, ...) {
    if (level < TTD_LOG_WARN)
        return 0;
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    text[std::strcspn(text, "\n")] = '\0';
    return std::fprintf(stderr, "ttdsign: %s\n", text);
}

int run(const command &what, const ttdsign_settings &with) {
    ttd_register_log_fct(print_complaint);
    if (const int err = tcrypto_init(0, nullptr); err != TCRYPTO_OK) {
        std::fprintf(stderr, "ttdsign: failed to initialize crypto library (%s)\n", tcrypto_strerror(err));
        return EOPNOTSUPP;
    }
    const int err = what.run(with);
    tcrypto_uninit();
    return err;
}

// The status, or the error of standard output when everything else went well.
int finish(int status) {
    const int err = mktfs_log_flush();
    if (status != 0 || err == 0)
        return status;
    std::fprintf(stderr, "ttdsign: standard output: %s\n", std::strerror(err));
    return err;
}

}  // namespace

int ttdsign_main(int argc, char **argv) {
    mktfs_cleanup_install();
    command_line line;
    const char *version = "ttdsign (mktfs) " MKTFS_VERSION "\n";
    if (const int err = mktfs_read_options(argc, argv, options, usage_text, version, line); err != 0)
        return err;
    if (line.message) {
        std::fputs(line.message, stdout);
        return finish(0);
    }
    if (optind == argc)
        return wrong_usage("missing command");
    const command *what = find_command(argv[optind]);
    if (!what)
        return wrong_usage("unknown command '%s'", argv[optind]);
    if (const int err = check_options(*what, line); err != 0)
        return err;
    if (const int err = take_operands(*what, argc - optind - 1, argv + optind + 1, line.settings); err != 0)
        return err;
    return finish(run(*what, line.settings));
}
