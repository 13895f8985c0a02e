#include "buildfile/acl.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// "tag.permissions" or "tag.permissions.id" of each entry.
std::string show(tvo_acl *acl) {
    std::string text;
    tvo_acl_entry *entry = nullptr;
    for (int which = TVO_ACL_FIRST_ENTRY; tvo_acl_get_entry(acl, which, &entry) == 1;
         which = TVO_ACL_NEXT_ENTRY) {
        std::uint32_t tag = 0;
        std::uint32_t permissions = 0;
        EXPECT_EQ(tvo_acl_get_tag_type(entry, &tag), 0);
        EXPECT_EQ(tvo_acl_get_permset(entry, &permissions), 0);
        text += (text.empty() ? "" : " ") + std::to_string(tag) + "." + std::to_string(permissions);
        if (std::uint32_t *id = tvo_acl_get_qualifier(entry)) {
            text += "." + std::to_string(*id);
            std::free(id);
        }
    }
    return text;
}

tvo_acl_ptr parse(const char *text) {
    tvo_acl_ptr acl;
    EXPECT_EQ(tvo_acl_from_short_text(th_out(acl), text, nullptr), 0) << text;
    return acl;
}

TEST(AclShortText, GivesEntriesInTheOrderOfTheText) {
    const struct {
        const char *text;
        const char *entries;
    } rows[] = {
        {"u::rw-,g::r--,o::r--", "1.6 3.4 6.4"},
        {"u:1000:rwx,g:100:r-x", "2.7.1000 4.5.100"},
        {"u:5:r,u:5:w", "2.4.5 2.2.5"},
        {"o::-x-w-,", "6.3"},
        {"", ""},
        {"u::", "1.0"},
        {"u:4294967295:", "2.0.4294967295"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        tvo_acl_ptr acl;
        const char *message = nullptr;
        ASSERT_EQ(tvo_acl_from_short_text(th_out(acl), row.text, &message), 0);
        EXPECT_STREQ(message, "Ok");
        EXPECT_EQ(show(acl.get()), row.entries);
    }
}

TEST(AclShortText, RefusesMalformedTexts) {
    const struct {
        const char *text;
        const char *message;
    } rows[] = {
        {"x::r", "Invalid ACL tag character"},
        {"u::r,,", "Invalid ACL tag character"},
        {"u", "Expecting ':'"},
        {"u:root:r", "Expecting ':'"},
        {"u:5r", "Expecting ':'"},
        {"o:5:r", "Qualifier not allowed here"},
        {"u:99999999999999999999:r", "Qualifier conversion failed"},
        {"u:4294967296:r", "Qualifier conversion failed"},
        {"u::rw-,u::r--", "Basic permission defined more than once"},
        {"u::rr", "ACL permission repeated"},
        {"u::rwz", "Invalid ACL permission character"},
        {"u::r w", "Invalid ACL permission character"},
        {"u::r\xe4", "Invalid ACL permission character"},
        {nullptr, "NULL pointer argument[s]"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text != nullptr ? row.text : "null");
        tvo_acl_ptr acl;
        const char *message = nullptr;
        errno = 0;
        EXPECT_EQ(tvo_acl_from_short_text(th_out(acl), row.text, &message), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_STREQ(message, row.message);
        EXPECT_EQ(acl, nullptr);
    }
}

TEST(AclList, GrowsBy32AndHoldsAtMost65535Entries) {
    tvo_acl *acl = tvo_acl_init(31);
    ASSERT_NE(acl, nullptr);
    EXPECT_EQ(acl->capacity, 32U);
    tvo_acl_entry *entry = nullptr;
    for (std::uint32_t id = 0; id < 65535; ++id) {
        ASSERT_EQ(tvo_acl_create_entry(&acl, &entry), 0);
        ASSERT_EQ(tvo_acl_set_tag_type(entry, TVO_ACL_USER), 0);
        ASSERT_EQ(tvo_acl_set_qualifier(entry, &id), 0);
    }
    EXPECT_EQ(acl->capacity, 65536U);
    EXPECT_EQ(tvo_acl_size(acl), 8 + 8 * 65535);
    EXPECT_EQ(tvo_acl_create_entry(&acl, &entry), -1);
    EXPECT_EQ(errno, ENOMEM);
    ASSERT_EQ(tvo_acl_get_entry(acl, TVO_ACL_FIRST_ENTRY, &entry), 1);
    EXPECT_EQ(entry->qualifier, 0U);
    tvo_acl_free(acl);
}

TEST(AclList, DeletingAnEntryStartsTheIterationAnew) {
    const tvo_acl_ptr acl = parse("u::r,g::w,o::x");
    tvo_acl_entry *entry = nullptr;
    ASSERT_EQ(tvo_acl_get_entry(acl.get(), TVO_ACL_FIRST_ENTRY, &entry), 1);
    ASSERT_EQ(tvo_acl_get_entry(acl.get(), TVO_ACL_NEXT_ENTRY, &entry), 1);
    ASSERT_EQ(tvo_acl_delete_entry(acl.get(), entry), 0);
    ASSERT_EQ(tvo_acl_get_entry(acl.get(), TVO_ACL_NEXT_ENTRY, &entry), 1);
    EXPECT_EQ(entry->tag_and_permissions, 0x01000004U);
    EXPECT_EQ(show(acl.get()), "1.4 6.1");

    tvo_acl_entry foreign{};
    EXPECT_EQ(tvo_acl_delete_entry(acl.get(), &foreign), -1);
    EXPECT_EQ(tvo_acl_get_entry(acl.get(), 2, &entry), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(AclEntry, RefusesUnknownTagsBitsAndQualifiersWithoutAName) {
    const tvo_acl_ptr acl = parse("u::rw");
    tvo_acl_entry *entry = nullptr;
    ASSERT_EQ(tvo_acl_get_entry(acl.get(), TVO_ACL_FIRST_ENTRY, &entry), 1);
    for (const std::uint32_t tag : {0U, 7U}) {
        EXPECT_EQ(tvo_acl_set_tag_type(entry, tag), -1);
        EXPECT_EQ(errno, EOPNOTSUPP);
    }
    const std::uint32_t id = 7;
    EXPECT_EQ(tvo_acl_set_qualifier(entry, &id), -1);
    EXPECT_EQ(tvo_acl_get_qualifier(entry), nullptr);

    std::uint32_t permissions = 0xFF000000;
    EXPECT_EQ(tvo_acl_add_perm(&permissions, 3), -1);
    EXPECT_EQ(tvo_acl_delete_perm(&permissions, 3), -1);
    ASSERT_EQ(tvo_acl_add_perm(&permissions, 2), 0);
    ASSERT_EQ(tvo_acl_add_perm(&permissions, 0), 0);
    ASSERT_EQ(tvo_acl_delete_perm(&permissions, 2), 0);
    ASSERT_EQ(tvo_acl_set_permset(entry, permissions), 0);
    EXPECT_EQ(show(acl.get()), "1.1");  // the tag survives bits above the low 24
    ASSERT_EQ(tvo_acl_clear_perms(&permissions), 0);
    EXPECT_EQ(permissions, 0U);
}

TEST(AclValidity, SortsThenDemandsACompleteList) {
    const struct {
        const char *text;
        int error;
        const char *sorted;
    } rows[] = {
        {"o::r,g:9:r,g::r,u:20:w,u:3:r,u::rwx", 0, "1.7 2.4.3 2.2.20 3.4 4.4.9 6.4"},
        {"u::r,g::r", EINVAL, "1.4 3.4"},
        {"u:5:r,u:5:w,u::r,g::r,o::r", EINVAL, "1.4 2.4.5 2.2.5 3.4 6.4"},
        {"", EINVAL, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const tvo_acl_ptr acl = parse(row.text);
        errno = 0;
        EXPECT_EQ(tvo_acl_valid(acl.get()), row.error == 0 ? 0 : -1);
        EXPECT_EQ(errno, row.error);
        EXPECT_EQ(show(acl.get()), row.sorted);
    }
}

TEST(AclValidity, ChecksEveryFieldOfAnExternalForm) {
    // Tag, permissions and id of the entries of an external form.
    using words = std::vector<std::uint32_t>;
    const words good = {8 + 3 * 8, 3U << 16, 0x01000007, 0, 0x03000000, 0, 0x06000004, 0};
    const struct {
        const char *name;
        std::size_t word;
        std::uint32_t value;
        int check;
        int copy;
    } rows[] = {
        {"good", 3, 99, 0, 0},
        {"version 1", 1, 3U << 16 | 1, 0, 0},
        {"version 2", 1, 3U << 16 | 2, EOPNOTSUPP, EOPNOTSUPP},
        {"size of another count", 0, 8 + 2 * 8, 0, EINVAL},
        {"tag 0", 2, 0x00000007, EINVAL, 0},
        {"tag 7", 2, 0x07000007, EINVAL, 0},
        {"permission bit 8", 2, 0x01000008, EINVAL, 0},
        {"owner twice", 4, 0x01000000, EINVAL, 0},
        {"descending tags", 2, 0x04000000, EINVAL, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        words form = good;
        form[row.word] = row.value;
        EXPECT_EQ(tvo_acl_posix_check_np(reinterpret_cast<const tvo_acl_external *>(form.data())), row.check);

        errno = 0;
        const tvo_acl_ptr acl(tvo_acl_copy_int(form.data()));
        EXPECT_EQ(errno, row.copy);
        ASSERT_EQ(acl == nullptr, row.copy != 0);
        if (acl != nullptr) {
            words out(good.size());
            EXPECT_EQ(tvo_acl_copy_ext(out.data(), acl.get(), 31), -1);
            EXPECT_EQ(tvo_acl_copy_ext(out.data(), acl.get(), 32), 32);
            EXPECT_EQ(out, form);
        }
    }
}

TEST(AclMask, IsTheUnionOfTheGroupClassBeforeTheFirstOther) {
    tvo_acl *acl = parse("u::rwx,u:1:r,o::rwx,g::x").release();
    ASSERT_EQ(tvo_acl_calc_mask(&acl), 0);
    EXPECT_EQ(show(acl), "1.7 2.4.1 5.5 6.7 3.1");
    tvo_acl_entry *entry = nullptr;
    ASSERT_EQ(tvo_acl_get_entry(acl, TVO_ACL_FIRST_ENTRY, &entry), 1);
    ASSERT_EQ(tvo_acl_set_tag_type(entry, TVO_ACL_GROUP), 0);
    ASSERT_EQ(tvo_acl_calc_mask(&acl), 0);  // now rewrites the entry that is there
    EXPECT_EQ(show(acl), "4.7.4294967295 2.4.1 5.7 6.7 3.1");
    tvo_acl_free(acl);
}

TEST(AclComplete, BringsListAndModeTogether) {
    const struct {
        const char *text;  // null: no list
        std::uint32_t mode;
        int error;
        std::uint32_t new_mode;
        const char *entries;
        const char *message;
    } rows[] = {
        {nullptr, 0640, 0, 0640, "none", "Ok - no ACL given"},
        {"u::rw,o::x", 0x10000 | 04777, 0, 04671, "none", "Ok - no ACL required"},
        {"", 0750, 0, 0750, "none", "Ok - no ACL required"},
        {"u:7:rw,g::r", 0751, 0, 0x10000 | 0741, "1.7 2.6.7 3.4 5.6 6.1", "Ok - ACL valid"},
        {"u:7:r,u:7:w", 0751, EINVAL, 0751, "none", "ACL validation failed"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.message);
        const tvo_acl_ptr acl = row.text != nullptr ? parse(row.text) : nullptr;
        tvo_acl_ptr result;
        std::uint32_t mode = row.mode;
        const char *message = nullptr;
        errno = 0;
        EXPECT_EQ(tvo_acl_complete(acl.get(), th_out(result), &mode, &message), row.error == 0 ? 0 : -1);
        EXPECT_EQ(errno, row.error);
        EXPECT_STREQ(message, row.message);
        EXPECT_EQ(mode, row.new_mode);
        EXPECT_EQ(result != nullptr ? show(result.get()) : "none", row.entries);
    }
}

}  // namespace
