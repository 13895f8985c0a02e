// Writing JSON to a stream: objects and arrays as values of a scope, members in order,
// indented for a person.  Output errors show in the stream's own state.
#pragma once

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <span>

#include "base/hex.h"

// An object or array: it writes its brackets when it is made and when it goes.
class mktfs_json {
public:
    // The whole text, which is an object and a line end.
    explicit mktfs_json(std::FILE *out) : mktfs_json(out, '{', '}', 0) {}
    mktfs_json(const mktfs_json &) = delete;
    mktfs_json &operator=(const mktfs_json &) = delete;
    ~mktfs_json() {
        if (!empty_)
            new_line(depth_);
        std::fputc(close_, out_);
        if (depth_ == 0)
            std::fputc('\n', out_);
    }

    [[nodiscard]] mktfs_json object(const char *name) { return nested(name, '{', '}'); }
    [[nodiscard]] mktfs_json array(const char *name) { return nested(name, '[', ']'); }

    void number(const char *name, std::uint64_t value) {
        begin(name);
        std::fprintf(out_, "%" PRIu64, value);
    }
    void boolean(const char *name, bool value) { word(name, value ? "true" : "false"); }
    void null(const char *name) { word(name, "null"); }
    void hex(const char *name, std::span<const std::uint8_t> value) {
        begin(name);
        std::fputc('"', out_);
        mktfs_write_hex(value, out_);
        std::fputc('"', out_);
    }
    // Null is written as null.
    void text(const char *name, const char *value) {
        begin(name);
        if (value)
            quote(value);
        else
            std::fputs("null", out_);
    }

private:
    mktfs_json(std::FILE *out, char open, char close, unsigned depth)
        : out_(out), close_(close), depth_(depth) {
        std::fputc(open, out_);
    }
    mktfs_json nested(const char *name, char open, char close) {
        begin(name);
        return {out_, open, close, depth_ + 1};
    }
    void word(const char *name, const char *value) {
        begin(name);
        std::fputs(value, out_);
    }
    void begin(const char *name) {  // null: an element of an array
        if (!empty_)
            std::fputc(',', out_);
        empty_ = false;
        new_line(depth_ + 1);
        if (name)
            std::fprintf(out_, "\"%s\": ", name);
    }
    void new_line(unsigned depth) { std::fprintf(out_, "\n%*s", static_cast<int>(2 * depth), ""); }
    // Texts may quote arguments of the command line, of any encoding: what is not
    // ASCII becomes the replacement character.
    void quote(const char *value) {
        std::fputc('"', out_);
        for (; *value != '\0'; ++value) {
            const auto byte = static_cast<unsigned char>(*value);
            if (byte == '"' || byte == '\\')
                std::fprintf(out_, "\\%c", byte);
            else if (byte < 0x20)
                std::fprintf(out_, "\\u%04x", byte);
            else
                byte < 0x7f ? (void)std::fputc(byte, out_) : (void)std::fputs("\\ufffd", out_);
        }
        std::fputc('"', out_);
    }

    std::FILE *out_;
    char close_;
    unsigned depth_;
    bool empty_ = true;
};
