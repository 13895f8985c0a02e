#include "acl/check.h"
#include "acl/short_text.h"
#include "support/failing_calls.h"
#include "support/test.h"

// clang-format off
FAILING_IF(fails() && (errno = ENOMEM), void *, malloc, nullptr, (std::size_t size), size)
FAILING_IF(fails() && (errno = ENOMEM), void *, realloc, nullptr, (void *memory, std::size_t size), memory, size)
// clang-format on

namespace {

std::string show(tvo_acl *acl) {
    std::string text;
    tvo_acl_entry *entry = nullptr;
    for (int which = 0; tvo_acl_get_entry(acl, which, &entry) == 1; which = 1) {
        std::uint32_t tag = 0, permissions = 0;
        EXPECT_EQ(tvo_acl_get_tag_type(entry, &tag) + tvo_acl_get_permset(entry, &permissions), 0);
        text += text.empty() ? "" : " ";
        text += std::to_string(tag) + '.' + std::to_string(permissions);
        if (std::uint32_t *id = tvo_acl_get_qualifier(entry)) {
            (text += '.') += std::to_string(*id);
            std::free(id);
        }
    }
    return text;
}

tvo_acl_ptr parse(const char *text) {
    tvo_acl_ptr acl;
    EXPECT_EQ(text ? tvo_acl_from_short_text(th_out(acl), text, nullptr) : 0, 0);
    return acl;
}

TEST(Acl, ShortTextGivesEntriesInItsOrderOrTheReasonOfItsRefusal) {
    const struct {
        const char *text, *message, *entries;
    } rows[] = {
        // clang-format off
        {"u::rw-,g::r--,o::r--", "Ok", "1.6 3.4 6.4"}, {"u:1000:rwx,g:100:r-x", "Ok", "2.7.1000 4.5.100"},
        {"u::,g:4294967295:,u:010:r-x,", "Ok", "1.0 4.0.4294967295 2.5.10"},
        {"u:4294967296:r", "Qualifier conversion failed", ""}, {"x::r", "Invalid ACL tag character", ""},
        {"u:99999999999999999999:r", "Qualifier conversion failed", ""}, {"u", "Expecting ':'", ""},
        {"u:5r", "Expecting ':'", ""}, {"g::r,g::r", "Basic permission defined more than once", ""},
        {"o:5:r", "Qualifier not allowed here", ""}, {"u::rr", "ACL permission repeated", ""},
        {"u::r w", "Invalid ACL permission character", ""}, {"", "Ok", ""},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const bool accepted = std::string(row.message) == "Ok";
        tvo_acl_ptr acl;
        const char *message = nullptr;
        errno = 0;
        EXPECT_EQ(tvo_acl_from_short_text(th_out(acl), row.text, &message), accepted ? 0 : -1);
        EXPECT_EQ(errno, accepted ? 0 : EINVAL);
        EXPECT_STREQ(message, row.message);
        ASSERT_EQ(acl != nullptr, accepted);
        EXPECT_EQ(acl ? show(acl.get()) : "", row.entries);
    }
}

TEST(Acl, GrowsBy32AndHoldsAtMost65535Entries) {
    tvo_acl *acl = tvo_acl_init(31);
    EXPECT_EQ(acl->capacity, 32U);
    tvo_acl_entry *entry = nullptr;
    for (std::uint32_t id = 0; id < 65535; ++id, entry->qualifier = id)
        ASSERT_EQ(tvo_acl_create_entry(&acl, &entry), 0);
    EXPECT_EQ(tvo_acl_create_entry(&acl, &entry), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(acl->capacity, 65536U);
    EXPECT_EQ(tvo_acl_size(acl), 8 + 8 * 65535);
    EXPECT_EQ(tvo_acl_get_entry(acl, TVO_ACL_FIRST_ENTRY, &entry), 1);
    EXPECT_EQ(entry->qualifier, 1U);
    tvo_acl_free(acl);
}

TEST(Acl, TellWhenMemoryIsOut) {
    std::string messages;
    const int calls = fail_each_call([&] {
        tvo_acl_ptr acl, completed;
        std::uint32_t mode = 0;
        const char *message = nullptr;
        errno = 0;
        bool done = tvo_acl_from_short_text(th_out(acl), "u::r,g::r,o::r,u:7:r", &message) == 0;
        done = done && tvo_acl_complete(acl.get(), th_out(completed), &mode, &message) == 0;
        EXPECT_TRUE(errno == (done ? 0 : ENOMEM) && !!completed == done);
        (messages += message) += '\n';
        return done;
    });
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(messages, "ACL initialization failed\nACL duplication failed\nOk - ACL valid\n");
}

TEST(Acl, EntriesRefuseUnknownTagsBitsAndNamelessQualifiers) {
    const tvo_acl_ptr acl = parse("u::r,g::w,o::x,u:7:r");
    tvo_acl_entry *entry = nullptr, foreign{};
    ASSERT_EQ(tvo_acl_get_entry(acl.get(), TVO_ACL_FIRST_ENTRY, &entry), 1);
    std::uint32_t permissions = 0xFF000000;
    const std::uint32_t id = 0xFFFFFFFE;
    for (const int answer : {tvo_acl_add_perm(&permissions, 3), tvo_acl_delete_perm(&permissions, 3),
                             tvo_acl_set_qualifier(entry, &id), tvo_acl_delete_entry(acl.get(), &foreign),
                             tvo_acl_get_entry(acl.get(), 2, &entry)})
        EXPECT_EQ(answer, -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(tvo_acl_set_tag_type(entry, 0) + tvo_acl_set_tag_type(entry, 7), -2);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(tvo_acl_add_perm(&permissions, 2) + tvo_acl_add_perm(&permissions, 0), 0);
    EXPECT_EQ(tvo_acl_delete_perm(&permissions, 2) + tvo_acl_set_permset(entry, permissions), 0);
    EXPECT_EQ(tvo_acl_set_qualifier(entry + 3, &id), 0);
    EXPECT_EQ(show(acl.get()), "1.1 3.2 6.1 2.4.4294967294");  // the tag survives bits above the low 24
    EXPECT_EQ(tvo_acl_delete_entry(acl.get(), entry + 1), 0);
    EXPECT_EQ(tvo_acl_get_entry(acl.get(), TVO_ACL_NEXT_ENTRY, &entry), 1);  // from the start again
    EXPECT_EQ(tvo_acl_clear_perms(&permissions) + tvo_acl_copy_entry(&foreign, entry), 0);
    EXPECT_EQ(permissions, 0U);
    EXPECT_EQ(foreign.tag_and_permissions, 0x01000001U);
    EXPECT_EQ(tvo_acl_set_tag_type(entry, 6), 0);
    EXPECT_EQ(show(acl.get()), "6.1 6.1 2.4.4294967294");
}

TEST(Acl, ChecksEveryFieldOfAnExternalForm) {
    using words = std::vector<std::uint32_t>;
    const words good = {8 + 3 * 8, 3U << 16, 0x01000007, 0, 0x03000000, 0, 0x06000004, 0};
    const struct {
        std::size_t word;
        std::uint32_t value;
        int check, copy = 0;
    } rows[] = {
        // clang-format off
        {3, 99, 0}, {1, 3U << 16 | 1, 0}, {1, 3U << 16 | 2, EOPNOTSUPP, EOPNOTSUPP},   // versions 1, 2
        {0, 8 + 2 * 8, 0, EINVAL},                                                     // size of another count
        {6, 0x05000004, EINVAL}, {2, 0x02000007, EINVAL}, {4, 0x04000000, EINVAL},     // a basic one is missing
        {4, 0x01000000, EINVAL}, {4, 0x06000000, EINVAL}, {2, 0x04000000, EINVAL},     // twice, descending
        {2, 0x00000007, EINVAL}, {6, 0x07000007, EINVAL}, {2, 0x01000008, EINVAL},     // tags 0, 7, bit 8
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        words form = good, out(good.size());
        form[row.word] = row.value;
        EXPECT_EQ(tvo_acl_posix_check_np(reinterpret_cast<const tvo_acl_external *>(form.data())), row.check);
        errno = 0;
        const tvo_acl_ptr acl(tvo_acl_copy_int(form.data()));
        EXPECT_EQ(errno, row.copy);
        ASSERT_EQ(acl == nullptr, row.copy != 0);
        EXPECT_EQ(acl ? tvo_acl_copy_ext(out.data(), acl.get(), 31) : -1, -1);
        EXPECT_EQ(acl ? tvo_acl_copy_ext(out.data(), acl.get(), 32) : 32, 32);
        EXPECT_TRUE(!acl || out == form);
    }
}

TEST(Acl, ValidityMaskAndCompletion) {
    const struct {
        const char *text, *masked, *sorted;  // null: no list
        int valid;
        const char *completed;
        std::uint32_t mode;  // from 0751
        const char *message;
    } rows[] = {
        // clang-format off
        {"o::r,g:9:r,g::r,u:20:w,u:3:r,u::rwx", "5.6 6.4 4.4.9 3.4 2.2.20 2.4.3 1.7",
         "1.7 2.4.3 2.2.20 3.4 4.4.9 5.6 6.4", 0, "1.7 2.4.3 2.2.20 3.4 4.4.9 5.6 6.4", 0x10000 | 0744, "Ok - ACL valid"},
        {"u:7:rw,g::r", "2.6.7 3.4 5.6", "2.6.7 3.4 5.6", EINVAL, "1.7 2.6.7 3.4 5.6 6.1", 0x10000 | 0741, "Ok - ACL valid"},
        {"u:5:r,u:5:w,u::r,g::r,o::r", "2.4.5 2.2.5 1.4 3.4 5.6 6.4", "1.4 2.4.5 2.2.5 3.4 5.6 6.4", EINVAL,
         "none", 0751, "ACL validation failed"},
        {"u::r,g::x,u:1:w", "1.4 3.1 2.2.1 5.3", "1.4 2.2.1 3.1 5.3", EINVAL, "1.4 2.2.1 3.1 5.3 6.1", 0x10000 | 0411,
         "Ok - ACL valid"},
        {"u::rw,o::x", "1.6 5.0 6.1", "1.6 5.0 6.1", EINVAL, "none", 0651, "Ok - no ACL required"},
        {nullptr, "", "", EINVAL, "none", 0751, "Ok - no ACL given"},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.message);
        tvo_acl_ptr completed;
        std::uint32_t mode = 0751;
        const char *message = nullptr;
        tvo_acl *acl = parse(row.text).release();
        const int rc = tvo_acl_complete(acl, th_out(completed), &mode, &message);
        EXPECT_EQ(rc == 0, std::string(row.message).starts_with("Ok"));
        EXPECT_STREQ(message, row.message);
        EXPECT_EQ(mode, row.mode);
        EXPECT_EQ(completed ? show(completed.get()) : "none", row.completed);
        EXPECT_EQ(tvo_acl_calc_mask(&acl), acl ? 0 : -1);
        EXPECT_EQ(show(acl), row.masked);
        EXPECT_EQ(tvo_acl_calc_mask(&acl), acl ? 0 : -1);  // now into the entry that is there
        errno = 0;
        EXPECT_EQ(tvo_acl_valid(acl), row.valid ? -1 : 0);
        EXPECT_EQ(errno, row.valid);
        EXPECT_EQ(show(acl), row.sorted);
        tvo_acl_free(acl);
    }
}

}  // namespace
