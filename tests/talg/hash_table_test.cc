#include "talg/hash_table.h"
#include "talg/keyed_record.h"

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/null_arguments.h"

static key_list destroyed;

TEST(HashTable, RefusesBadArgumentsAndAWalkMayRemoveNodes) {
    keyed_record records[5] = {{0}, {1}, {2}, {4}, {6}};
    talg_hash_table *table = nullptr;
    talg_hash_node *found = nullptr;
    const auto set = [&](keyed_record &r) { return talg_hash_table_set(table, &r.entry.hash_node, &r.key); };
    const auto note = [](talg_hash_node *node, void *) { destroyed.push_back(record_of(node)->key); };
    EXPECT_THAT(answers_to_null(talg_hash_table_create, &table, masked_hash, compare_keys, nullptr, 0, 0),
                testing::Each(EINVAL));
    EXPECT_EQ(talg_hash_table_create(&table, masked_hash, compare_keys, nullptr, 33, 0), EINVAL);
    EXPECT_EQ(set(records[0]) + talg_hash_table_get(table, &found, &records[0].key), 2 * EINVAL);
    EXPECT_EQ(talg_hash_table_foreach(table, collect_key, nullptr), EINVAL);
    for (const unsigned order : {32u, 2u}) {  // a single bucket, and four
        talg_hash_table_destroy(table);
        destroyed.clear();
        ASSERT_EQ(talg_hash_table_create(&table, masked_hash, compare_keys, note, order, 0), 0);
        for (keyed_record &record : records)
            EXPECT_EQ(set(record), order == 32 && record.key != 0 ? ERANGE : 0);
        EXPECT_EQ(talg_hash_table_get(table, &found, &records[1].key), order == 32 ? ERANGE : 0);
    }
    EXPECT_EQ(talg_hash_table_foreach(table, nullptr, nullptr), EINVAL);
    EXPECT_EQ(talg_hash_table_set(table, nullptr, &records[0].key), EINVAL);
    key_list keys;
    EXPECT_EQ(talg_hash_table_foreach(table, collect_key, &keys), 0);
    EXPECT_EQ(keys, (key_list{4, 0, 1, 6, 2}));
    EXPECT_EQ(set(records[2]), 0) << "once more";
    EXPECT_EQ(destroyed, key_list{});
    keyed_record equal{2};
    EXPECT_EQ(set(equal), 0);
    EXPECT_EQ(destroyed, key_list{2});
    EXPECT_EQ(talg_hash_table_get(table, &found, &equal.key), 0);
    EXPECT_EQ(found, &equal.entry.hash_node);
    const auto remove_until_one = [](talg_hash_node *node, void *owner) {
        talg_hash_table_remove(static_cast<talg_hash_table *>(owner), node);
        return record_of(node)->key == 1 ? 77 : 0;
    };
    EXPECT_EQ(talg_hash_table_foreach(table, remove_until_one, table), 77);
    talg_hash_table_destroy(table);
    EXPECT_EQ(destroyed, (key_list{2, 4, 0, 1, 2, 6}));
}
