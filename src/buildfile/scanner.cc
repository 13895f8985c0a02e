#include "buildfile/scanner.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/log.h"
#include "buildfile/scanner_state.h"
#include "fs/diag.h"
#include "th/handle.h"

namespace {

using c_string = th_handle<char, std::free>;

constexpr int EXIT_STATUS_OF_THE_GENERATED_SCANNER = 2;

[[noreturn]] void out_of_memory() {
    std::fputs("out of dynamic memory in yy_get_next_buffer()\n", stderr);
    std::exit(EXIT_STATUS_OF_THE_GENERATED_SCANNER);
}

// Text that grows in amortised linear time.  May hold NUL bytes.
class growing_text {
public:
    void clear() { length_ = 0; }

    void append(const char *text, std::size_t length) {
        reserve(length_ + length + 1);
        std::memcpy(bytes_.get() + length_, text, length);
        length_ += length;
    }

    [[nodiscard]] std::size_t length() const { return length_; }

    // Hands over the terminated text, to be freed by the caller, and starts an empty one.
    [[nodiscard]] char *release() {
        reserve(length_ + 1);
        bytes_.get()[length_] = '\0';
        length_ = 0;
        capacity_ = 0;
        return bytes_.release();
    }

private:
    void reserve(std::size_t wanted) {
        if (wanted <= capacity_)
            return;
        const std::size_t grown = std::max(wanted, capacity_ * 2);
        auto *bytes = static_cast<char *>(std::realloc(bytes_.get(), grown));
        if (!bytes)
            out_of_memory();
        (void)bytes_.release();  // realloc freed or extended it
        bytes_.reset(bytes);
        capacity_ = grown;
    }

    c_string bytes_;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
};

struct position {
    int line = 1;
    int column = 0;        // just past the last token
    int token_length = 0;  // of the last token, bytes
};

// The one build file of the process.
struct scanner {
    std::FILE *stream = nullptr;
    c_string path;
    position at;
    int statement = BASE_STATE_LINE;
    int element = BASE_ELEMENT_OPTION;
    c_string quoted;  // the last run of text of a quoted string
    growing_text contents;
};

constinit scanner self;

// Lines of more than 2 GiB wrap around instead of overflowing.
int wrapping_sum(int a, std::size_t b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

char *copy_or_exit(const char *text, std::size_t length) {
    auto *copy = static_cast<char *>(std::malloc(length + 1));
    if (!copy)
        out_of_memory();
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

}  // namespace

void base_scanner_open(const char *path) {
    const char *name = mktfs_shown(path);
    base_scanner_close();  // left open by an abandoned parse
    self.at.line = 1;
    self.at.token_length = 0;
    self.statement = BASE_STATE_LINE;
    self.path.reset(copy_or_exit(name, std::strlen(name)));
    self.stream = std::fopen(name, "re");
    if (!self.stream)
        mktfs_log(MKTFS_LOG_FATAL, "failed to open input file '%s'\n", name);
    base_in = self.stream;
}

int base_scanner_close() {
    base_lex_destroy();
    self.quoted.reset();
    std::FILE *stream = std::exchange(self.stream, nullptr);
    return stream ? std::fclose(stream) : 0;
}

void base_scanner_context(const char **file, int *line, int *column) {
    *file = self.path.get();
    *line = self.at.line;
    *column = wrapping_sum(self.at.column, -static_cast<std::size_t>(self.at.token_length));
}

void base_scanner_setstate(int state) {
    self.statement = state;
}
void base_scanner_setelem(int kind) {
    self.element = kind;
}
int base_wrap() {
    return 1;
}

bool base_scanner_is_open() {
    return self.stream;
}
int base_statement() {
    return self.statement;
}
bool base_target_expected() {
    return self.statement == BASE_STATE_TARGET && self.element != BASE_ELEMENT_OPTION;
}

void base_token(std::size_t length) {
    self.at.column = wrapping_sum(self.at.column, length);
    self.at.token_length = static_cast<int>(length);
}

void base_newline() {
    self.at.line = wrapping_sum(self.at.line, 1);
    self.at.column = 1;
}

void base_count_lines(const char *text, std::size_t length) {
    const auto lines = std::count(text, text + length, '\n');
    self.at.line = wrapping_sum(self.at.line, static_cast<std::size_t>(lines));
}

int base_keyword(base_element_kind kind, int token) {
    self.statement = BASE_STATE_ATTRIBUTE;
    self.element = kind;
    return token;
}

char *base_copy(const char *text, std::size_t length) {
    return copy_or_exit(text, length);
}

void base_quoted_begin() {
    self.quoted.reset();
}

void base_quoted_text(const char *text, std::size_t length) {
    base_count_lines(text, length);
    self.quoted.reset();
    self.quoted.reset(copy_or_exit(text, length));
}

char *base_quoted_end() {
    if (!self.quoted)
        mktfs_parse_error("empty quoted string");
    return self.quoted.release();
}

void base_contents_begin() {
    self.contents.clear();
}

void base_contents_text(const char *text, std::size_t length) {
    base_count_lines(text, length);
    self.contents.append(text, length);
}

char *base_contents_end() {
    self.at.token_length = wrapping_sum(1, self.contents.length());
    return self.contents.release();
}

void base_invalid_character(char character) {
    const auto code = static_cast<unsigned char>(character);
    if (std::isprint(code) != 0)
        mktfs_parse_error("Invalid character '%c'\n", code);
    else
        mktfs_parse_error("Invalid character <0x%02x>\n", code);
}

void base_unterminated() {
    mktfs_parse_error("unterminated quoted string");
}

int base_end_of_input() {
    self.at.token_length = 1;  // the end itself counts as a token of one byte
    return 0;
}

int base_unterminated_input() {
    base_end_of_input();
    base_unterminated();
    self.quoted.reset();
    return 0;
}
