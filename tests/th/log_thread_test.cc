#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "th/log.h"

TH_LOG_CONTEXT_DEFINE(shared_log, "shared");
TH_LOG_CONTEXT_DEFINE(other_log, "other");

namespace {

constexpr int ROUNDS = 200;
constexpr std::size_t TEXT_LENGTH = 3000;  // takes the shared buffer

void log_long_messages(th_log_context *const *context, char letter) {
    const std::string text(TEXT_LENGTH, letter);
    const th_log_call_site site = {.flags = TH_LOG_ERROR, .context = context};
    for (int i = 0; i < ROUNDS; i++)
        th_log_ex(&site, "%s\n", text.c_str());
}

// stderr stays on for errors in every configuration.
void change_configuration() {
    for (int i = 0; i < ROUNDS; i++) {
        EXPECT_EQ(th_log_update_config(i % 2 ? "shared:stderr=debug2;new:~stdout" : "all:stderr=error"), 0);
        std::int32_t level = 0;
        EXPECT_EQ(th_log_get_verbosity(&shared_log, TH_LOG_STDERR, &level), 0);
    }
}

th_log_context *passing_log = nullptr;
std::atomic<bool> all_logged = false;

void make_and_destroy_a_context() {
    while (!all_logged) {
        EXPECT_EQ(th_log_context_create("passing", &passing_log), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        EXPECT_EQ(th_log_context_destroy(&passing_log), 0);
    }
}

void log_to_the_passing_context() {
    for (int i = 0; i < ROUNDS; i++)
        TH_LOG(passing_log, TH_LOG_ERROR, "-\n");
    all_logged = true;
}

std::string message_of(const std::string &line) {
    const std::size_t start = line.find(": ") + 2;
    return line.substr(start, line.rfind(" [") - start);
}

TEST(LogThreads, LinesStayWhole) {
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c'})
        threads.emplace_back(log_long_messages, letter == 'c' ? &other_log : &shared_log, letter);
    threads.emplace_back(change_configuration);
    threads.emplace_back(make_and_destroy_a_context);
    threads.emplace_back(log_to_the_passing_context);
    for (std::thread &thread : threads)
        thread.join();
    std::istringstream lines(testing::internal::GetCapturedStderr());
    std::multiset<std::string> messages;
    for (std::string line; std::getline(lines, line);)
        messages.insert(message_of(line));
    EXPECT_EQ(messages.size(), 4u * ROUNDS);
    for (const char letter : {'a', 'b', 'c'})
        EXPECT_EQ(messages.count(std::string(TEXT_LENGTH, letter)), static_cast<std::size_t>(ROUNDS));
    EXPECT_EQ(messages.count("-"), static_cast<std::size_t>(ROUNDS));
    EXPECT_EQ(th_log_update_config("all:default;default:all=notice,~all,stderr"), 0);
}

}  // namespace
