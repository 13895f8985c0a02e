// The number parser behind the conversions of str.h, and its optional steps.
// Used by this library only.
#pragma once

#include <cstdint>

struct th_str_request;

// A step of the parser: reads at the cursor, or looks at the value.  0 or an
// error number.
using th_str_step = int (*)(th_str_request &request);

struct th_str_request {
    const char *cursor = nullptr;
    int base = 10;
    bool partial = false;    // text after the value is allowed
    bool is_signed = false;  // how minimum, maximum and value compare
    std::uint64_t minimum = 0;
    std::uint64_t maximum = UINT64_MAX;
    std::uint64_t value = 0;       // signed ones in two's complement
    th_str_step label = nullptr;   // before the number; an error means that there is no label
    th_str_step suffix = nullptr;  // after the number or label
    th_str_step range = nullptr;   // instead of the test against minimum and maximum
};

// Runs the steps.  0, with errno as before, or an error number that is also in
// errno; with ERANGE the value is the bound that was crossed.
int parse_string_to_number(th_str_request &request);

[[nodiscard]] bool th_str_is_space(char c);
void th_str_skip_space(th_str_request &request);
