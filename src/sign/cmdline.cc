#include "sign/cmdline.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/cleanup.h"
#include "base/log.h"
#include "sign/commands.h"
#include "tcrypto/tcrypto.h"
#include "th/str.h"
#include "ttd/engine_log.h"
#include "ttd/format.h"

namespace {

constexpr int USAGE_ERROR = 1;

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

enum option_code : int {
    OPTION_DIGEST = 256,
    OPTION_OUTPUT,
    OPTION_KEY,
    OPTION_SIGNATURE,
    OPTION_OLD_KEY,
    OPTION_UNCHECKED,
    OPTION_ROLLBACK,
    OPTION_DRY_RUN,
    OPTION_JSON,
    OPTION_VERSION,
};

constexpr option long_options[] = {
    {"digest", no_argument, nullptr, OPTION_DIGEST},
    {"output", required_argument, nullptr, OPTION_OUTPUT},
    {"key", required_argument, nullptr, OPTION_KEY},
    {"signature", required_argument, nullptr, OPTION_SIGNATURE},
    {"old-key", required_argument, nullptr, OPTION_OLD_KEY},
    {"unchecked", no_argument, nullptr, OPTION_UNCHECKED},
    {"rollback", required_argument, nullptr, OPTION_ROLLBACK},
    {"dry-run", no_argument, nullptr, OPTION_DRY_RUN},
    {"json", no_argument, nullptr, OPTION_JSON},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {},
};

[[gnu::format(printf, 1, 2)]] int wrong_usage(const char *format, ...) {
    std::fputs("ttdsign: ", stderr);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputs(", see --help\n", stderr);
    return USAGE_ERROR;
}

constexpr unsigned bit(int code) {
    return code == 'h' ? 0 : 1U << (code - OPTION_DIGEST);
}

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
    {"message", ttdsign_message, bit(OPTION_DIGEST) | bit(OPTION_OUTPUT), 0, 1, 1},
    {"join", ttdsign_join, bit(OPTION_KEY) | bit(OPTION_DRY_RUN) | bit(OPTION_JSON), bit(OPTION_KEY), 2, 2},
    {"resign", ttdsign_resign,
     bit(OPTION_SIGNATURE) | bit(OPTION_KEY) | bit(OPTION_OLD_KEY) | bit(OPTION_UNCHECKED) |
         bit(OPTION_ROLLBACK) | bit(OPTION_DRY_RUN) | bit(OPTION_JSON),
     bit(OPTION_SIGNATURE) | bit(OPTION_KEY), 1, INT_MAX},
};

struct command_line {
    ttdsign_settings settings;
    unsigned given = 0;             // bits of the options
    const char *message = nullptr;  // printed instead of working
};

int apply_option(int code, command_line &to) {
    ttdsign_settings &with = to.settings;
    switch (code) {
    case OPTION_DIGEST:
        with.digest = true;
        return 0;
    case OPTION_OUTPUT:
        with.output = optarg;
        return 0;
    case OPTION_KEY:
        with.key = optarg;
        return 0;
    case OPTION_SIGNATURE:
        with.sigtype = ttd_sig_type(optarg);
        return with.sigtype != 0 ? 0 : wrong_usage("unknown signature type '%s'", optarg);
    case OPTION_OLD_KEY:
        with.old_key = optarg;
        return 0;
    case OPTION_UNCHECKED:
        with.unchecked = true;
        return 0;
    case OPTION_ROLLBACK:
        with.rollback = 0;
        return th_str_to_uint64(optarg, 10, &*with.rollback) == 0
                   ? 0
                   : wrong_usage("invalid rollback value '%s'", optarg);
    case OPTION_DRY_RUN:
        with.dry_run = true;
        return 0;
    case OPTION_JSON:
        with.json = true;
        return 0;
    case OPTION_VERSION:
        to.message = "ttdsign (mktfs) " MKTFS_VERSION "\n";
        return 0;
    case 'h':
        to.message = usage_text;
        return 0;
    default:  // getopt has said what is wrong
        return USAGE_ERROR;
    }
}

// Help and version end the command line: nothing behind them matters.
int parse_options(int argc, char **argv, command_line &to) {
    for (int code; !to.message && (code = getopt_long(argc, argv, "h", long_options, nullptr)) != -1;) {
        if (const int err = apply_option(code, to); err != 0)
            return err;
        to.given |= bit(code);
    }
    return 0;
}

const command *find_command(const char *name) {
    for (const command &known : commands)
        if (std::strcmp(known.name, name) == 0)
            return &known;
    return nullptr;
}

const char *option_name(unsigned bits) {
    for (const option &known : long_options)
        if (known.name && (bit(known.val) & bits) != 0)
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

// The status, unless all went well but standard output was not written.
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
    if (const int err = parse_options(argc, argv, line); err != 0)
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
