#include "foundation/qelArray.h"
#include "foundation/qelBuffer.h"
#include "foundation/qelHashTable.h"
#include "foundation/qelSharedResource.h"
#include "foundation/qelValue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Tracked {
    explicit Tracked(std::atomic<int>& counter) : destroyed(counter) {}
    ~Tracked() { ++destroyed; }
    std::atomic<int>& destroyed;
};
template <int A, int R, int L>
using Handle = qel::SharedResource<qel::PointerStorage<Tracked, A, R>, L>;

TEST(SharedResource, LastOwningCopyDestroysOnceAndNonOwningNever) {
    std::atomic<int> destroyed{0}, otherDestroyed{0};
    {
        Handle<0, 3, 0> first(new Tracked(destroyed));
        Handle<0, 3, 0> second(first), third;
        third = second;
        third = *&third; // same manager: no change
        first.reset();
        second = Handle<0, 3, 0>();
        Handle<0, 3, 0> moved(std::move(third));
        EXPECT_TRUE(first.isEmpty() && second.isEmpty() && third.isEmpty());
        EXPECT_EQ(destroyed, 0);
        moved = Handle<0, 3, 0>(new Tracked(otherDestroyed)); // drops the last reference
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(otherDestroyed, 1);

    Tracked observer(destroyed); // a non-owning handle only forgets
    Handle<3, 2, 0>(&observer).reset();
    Handle<3, 2, 0> borrowed(&observer), copy(borrowed);
    borrowed.reset();
    EXPECT_EQ(copy.get(), &observer);
    copy.reset();
    EXPECT_EQ(destroyed, 1);
}

TEST(SharedResource, LockedHandleSurvivesConcurrentCopies) {
    std::atomic<int> destroyed{0};
    Handle<0, 3, 1> shared(new Tracked(destroyed));
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&shared] {
            for (int i = 0; i < 20000; ++i) {
                Handle<0, 3, 1> copy(shared), other;
                other = copy;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(destroyed, 0);
    shared.reset();
    EXPECT_EQ(destroyed, 1);
}

// A plain holder: copies share the value without a count, and no copy ever releases it,
// whatever the storage would have a counted handle do.
TEST(CopiedResource, CopiesHoldTheValueAndNeverReleaseIt) {
    std::atomic<int> destroyed{0};
    Tracked* object = new Tracked(destroyed);
    using Owning = qel::CopiedResource<qel::PointerStorage<Tracked, 0, 3>>;
    using Observer = qel::CopiedResource<qel::PointerStorage<Tracked, 3, 2>>;
    {
        Owning held(object);
        Owning copy(held), assigned;
        EXPECT_TRUE(assigned.isEmpty());
        assigned = copy;
        ASSERT_EQ(assigned.get(), object);
        EXPECT_FALSE(assigned.isEmpty());
        EXPECT_EQ(&assigned->destroyed, &destroyed);
        EXPECT_TRUE(assigned == held);
        EXPECT_FALSE(assigned == Owning());
    }
    EXPECT_EQ(destroyed, 0);
    // Observer lists hold them in arrays; dropping an entry leaves its object alone.
    qel::Array<Observer> observers;
    observers.append(Observer());
    observers.append(Observer(object));
    EXPECT_TRUE(observers.contains(Observer(object)));
    observers.removeAt(1);
    EXPECT_FALSE(observers.contains(Observer(object)));
    observers.clear();
    EXPECT_EQ(destroyed, 0);
    delete object;
    EXPECT_EQ(destroyed, 1);
}

std::vector<unsigned int> arrayOf(const QELValue& value) {
    qel::Array<unsigned int> out;
    out.append(0xDEADu); // left alone when the value holds no array
    value.get(out);
    return std::vector<unsigned int>(out.begin(), out.end());
}

TEST(QELValue, HoldsOneKindAndAnswersOnlyForIt) {
    qel::Array<unsigned int> levels;
    for (unsigned int level : {0x1Fu, 0xA0u, 0u}) {
        levels.append(level);
    }
    struct Case {
        const char* name;
        QELValue value;
        bool isArray;
        std::vector<unsigned int> array;
        bool hasBool, boolean;
        std::string hex, prefixed;
    };
    const Case cases[] = {
        {"none", QELValue(), false, {0xDEAD}, false, false, "", ""},
        {"int", QELValue(-2), false, {0xDEAD}, false, false, "FFFFFFFE", "0xFFFFFFFE"},
        {"unsigned", QELValue(0xABCu), false, {0xDEAD}, false, false, "ABC", "0xABC"},
        {"true", QELValue(true), false, {0xDEAD}, true, true, "1", "0x1"},
        {"false", QELValue(false), false, {0xDEAD}, true, false, "0", "0x0"},
        {"array",
         QELValue(levels),
         true,
         {0x1F, 0xA0, 0},
         false,
         false,
         "1F,A0,0",
         "0x1F,0xA0,0x0"},
        {"empty array", QELValue(qel::Array<unsigned int>()), true, {}, false, false, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.value.isArray(), c.isArray);
        EXPECT_EQ(arrayOf(c.value), c.array);
        bool flag = !c.boolean; // changed only by a bool value
        EXPECT_EQ(c.value.get(flag), c.hasBool);
        EXPECT_EQ(flag, c.hasBool ? c.boolean : !c.boolean);
        EXPECT_EQ(c.value.toHexString(false).toStdString(), c.hex);
        EXPECT_EQ(c.value.toHexString(true).toStdString(), c.prefixed);
        QELValue copy(c.value), assigned(7);
        assigned = c.value;
        EXPECT_FALSE(copy != c.value);
        EXPECT_FALSE(assigned != c.value);
    }
    // Copies are values: changing the source array later changes neither.
    QELValue held(levels);
    levels.append(5u);
    EXPECT_EQ(arrayOf(held), (std::vector<unsigned int>{0x1F, 0xA0, 0}));
    EXPECT_TRUE(held != QELValue(levels));
    EXPECT_TRUE(QELValue(3) != QELValue(4));
    EXPECT_TRUE(QELValue(true) != QELValue(false));
    EXPECT_FALSE(QELValue() != QELValue());
}

using Bytes = qel::Buffer<unsigned char>;

bool allBytes(const Bytes& buffer, qel::Uint64 from, qel::Uint64 to, unsigned char value) {
    for (qel::Uint64 i = from; i < to; ++i) {
        if (buffer.data()[i] != value) {
            return false;
        }
    }
    return true;
}

TEST(Buffer, ShrinkKeepsStorageOnlyAboveHalfTheCapacity) {
    Bytes buffer;
    buffer.resize(100);
    ASSERT_EQ(buffer.capacity(), 100u);
    EXPECT_TRUE(allBytes(buffer, 0, 100, 0));
    std::memset(buffer.data(), 0xAB, 100);
    const unsigned char* storage = buffer.data();
    buffer.resize(60);
    EXPECT_EQ(buffer.data(), storage);
    EXPECT_EQ(buffer.size(), 60u);
    EXPECT_EQ(buffer.capacity(), 100u);
    buffer.resize(40);
    EXPECT_EQ(buffer.size(), 40u);
    EXPECT_EQ(buffer.capacity(), 40u);
    EXPECT_TRUE(allBytes(buffer, 0, 40, 0xAB));
    buffer.resize(50); // growing moves into fresh zero-filled storage
    EXPECT_EQ(buffer.capacity(), 50u);
    EXPECT_TRUE(allBytes(buffer, 0, 40, 0xAB) && allBytes(buffer, 40, 50, 0));
    buffer.resize(25); // exactly half is not above half
    EXPECT_EQ(buffer.capacity(), 25u);
    buffer.resize(0);
    EXPECT_TRUE(buffer.data() == nullptr && buffer.size() == 0 && buffer.capacity() == 0);
}

TEST(Buffer, AssignCopiesExceptFromItsOwnStorage) {
    const unsigned char source[] = {1, 2, 3, 4, 5};
    Bytes buffer;
    buffer.assign(source, sizeof source);
    EXPECT_EQ(buffer.capacity(), 5u);
    EXPECT_EQ(std::memcmp(buffer.data(), source, 5), 0);
    const unsigned char* storage = buffer.data();
    buffer.assign(buffer.data(), 2);
    EXPECT_EQ(buffer.data(), storage);
    EXPECT_EQ(buffer.size(), 5u);

    Bytes copy(buffer);
    copy.data()[0] = 9;
    EXPECT_EQ(buffer.data()[0], 1);
    Bytes moved(std::move(copy));
    EXPECT_TRUE(copy.data() == nullptr && copy.capacity() == 0);
    EXPECT_EQ(moved.data()[0], 9);
}

using Table = qel::OrderedHashTable<qel::String, int>;

std::vector<std::string> keysInOrder(const Table& table) {
    std::vector<std::string> keys;
    for (auto it = table.begin(); it != table.end(); ++it) {
        keys.push_back(it.key().toStdString());
    }
    return keys;
}
qel::String key(int i) {
    return qel::String(("card" + std::to_string(i)).c_str());
}

TEST(OrderedHashTable, KeepsInsertionOrderThroughRemovalsAndGrowth) {
    Table table(3); // small, so inserting forces several rehashes
    std::vector<std::string> expected;
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(table.insert(key(i), i));
        if (i % 3 != 0) {
            expected.push_back(key(i).toStdString());
        }
    }
    for (int i = 0; i < 200; i += 3) {
        EXPECT_TRUE(table.remove(key(i)));
    }
    EXPECT_EQ(keysInOrder(table), expected);
    EXPECT_EQ(table.lookup(key(3)), nullptr);
    ASSERT_NE(table.lookup(key(199)), nullptr);
    EXPECT_EQ(*table.lookup(key(199)), 199);

    EXPECT_FALSE(table.insert(key(1), -1)); // replaces in place
    EXPECT_EQ(table.get(key(1)), -1);
    EXPECT_EQ(keysInOrder(table), expected);
}

TEST(OrderedHashTable, MissingKeyThrowsWithTheKey) {
    Table table;
    table.insert(qel::String("present"), 1);
    try {
        table.get(qel::String("absent"));
        FAIL() << "no exception";
    } catch (const qel::HashKeyMissing& missing) {
        EXPECT_EQ(missing.key(), qel::String("absent"));
        qel::Exception copy(missing); // handlers copy it as the base type
        EXPECT_NE(std::string(copy.what()).find("absent"), std::string::npos);
    }
    EXPECT_THROW(static_cast<const Table&>(table).get(qel::String("Present")), qel::HashKeyMissing);
}

TEST(OrderedHashTable, CopiesAreIndependentAndOrdered) {
    Table table;
    for (const char* name : {"m", "c", "x", "a"}) {
        table.insert(qel::String(name), 0);
    }
    table.remove(qel::String("c"));
    Table copy(table);
    copy.insert(qel::String("m"), 5);
    copy.remove(qel::String("x"));
    EXPECT_EQ(table.get(qel::String("m")), 0);
    EXPECT_EQ(keysInOrder(table), (std::vector<std::string>{"m", "x", "a"}));
    Table assigned;
    assigned.insert(qel::String("old"), 1);
    assigned = copy;
    EXPECT_EQ(keysInOrder(assigned), (std::vector<std::string>{"m", "a"}));
    EXPECT_EQ(assigned.get(qel::String("m")), 5);
}

} // namespace
