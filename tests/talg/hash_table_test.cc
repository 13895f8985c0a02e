#include "talg/hash_table.h"
#include "talg/keyed_record.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace {

key_list destroyed;

void note(talg_hash_node *node, void *) {
    destroyed.push_back(record_of(node)->key);
}

class HashTable : public testing::Test {
protected:
    void create(unsigned order) {
        destroyed.clear();
        ASSERT_EQ(talg_hash_table_create(&table, masked_hash, compare_keys, note, order, 0), 0);
        for (keyed_record &record : records)
            EXPECT_EQ(set(record), order == 32 && record.key != 0 ? ERANGE : 0);
    }
    int set(keyed_record &r) { return talg_hash_table_set(table, &r.entry.hash_node, &r.key); }
    int get(std::uint32_t key) { return talg_hash_table_get(table, &found, &key); }
    key_list walk() {
        key_list keys;
        talg_hash_table_foreach(table, collect_key, &keys);
        return keys;
    }
    void TearDown() override { talg_hash_table_destroy(table); }

    keyed_record records[5] = {{0}, {1}, {2}, {4}, {6}};
    keyed_record again{2};
    talg_hash_table *table = nullptr;
    talg_hash_node *found = nullptr;
};

}  // namespace

TEST_F(HashTable, RefusesBadArguments) {
    EXPECT_EQ(talg_hash_table_create(&table, masked_hash, nullptr, nullptr, 0, 0), EINVAL);
    EXPECT_EQ(talg_hash_table_create(&table, masked_hash, compare_keys, nullptr, 33, 0), EINVAL);
    EXPECT_EQ(talg_hash_table_create(&table, nullptr, compare_keys, nullptr, 0, 0), EINVAL);
    EXPECT_EQ(talg_hash_table_create(nullptr, masked_hash, compare_keys, nullptr, 0, 0), EINVAL);
    EXPECT_EQ(set(again), EINVAL);
    EXPECT_EQ(get(1), EINVAL);
    EXPECT_EQ(talg_hash_table_foreach(table, collect_key, nullptr), EINVAL);
    create(32);  // a single bucket
    EXPECT_EQ(get(1), ERANGE);
    EXPECT_EQ(talg_hash_table_foreach(table, nullptr, nullptr), EINVAL);
    EXPECT_EQ(talg_hash_table_set(table, nullptr, &again.key), EINVAL);
    EXPECT_EQ(walk(), key_list{0});
}

TEST_F(HashTable, EqualKeyDestroysTheOlderNodeAndTheSameNodeNothing) {
    create(2);
    EXPECT_EQ(walk(), (key_list{4, 0, 1, 6, 2}));
    EXPECT_EQ(set(records[2]), 0);
    EXPECT_EQ(destroyed, key_list{});
    EXPECT_EQ(set(again), 0);
    EXPECT_EQ(destroyed, key_list{2});
    EXPECT_EQ(get(2), 0);
    EXPECT_EQ(found, &again.entry.hash_node);
    EXPECT_EQ(get(3), ENOENT);
    talg_hash_table_remove(table, &records[0].entry.hash_node);  // tail of its bucket
    EXPECT_EQ(walk(), (key_list{4, 1, 2, 6}));
}

TEST_F(HashTable, WalkMayRemoveNodesAndEndsAtTheFirstResult) {
    create(0);
    const auto remove_until_one = [](talg_hash_node *node, void *owner) {
        talg_hash_table_remove(static_cast<talg_hash_table *>(owner), node);
        return record_of(node)->key == 1 ? 77 : 0;
    };
    EXPECT_EQ(talg_hash_table_foreach(table, remove_until_one, table), 77);
    EXPECT_EQ(walk(), key_list{0});
    talg_hash_table_destroy(table);
    table = nullptr;
    EXPECT_EQ(destroyed, (key_list{6, 4, 2, 1, 0}));
}
