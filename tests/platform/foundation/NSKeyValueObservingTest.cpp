// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace morvane {
namespace {

constexpr NSKeyPath colour{"colour"};
constexpr NSKeyPath shape{"shape"};
constexpr NSKeyPath colourOfPart{"part.colour", &colour};

class Thing : public NSObservable {
  public:
    int colourValue = 0;
    void setColour(int value) {
        colourValue = value;
        didChangeValueForKey(colour);
    }
    void setShape() { didChangeValueForKey(shape); }
};

/// Writes what it is told into a common log, then does what the test wants.
class Watcher final : public NSKeyValueObserver {
  public:
    Watcher(std::vector<std::string>& log, std::string name) : log_(log), name_(std::move(name)) {}
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override {
        log_.push_back(name_ + " " + std::string(keyPath.name));
        origin = &object;
        if (then)
            then();
    }
    NSObject* origin = nullptr;
    std::function<void()> then;

  private:
    std::vector<std::string>& log_;
    std::string name_;
};

using Log = std::vector<std::string>;

class NSObservableTest : public testing::Test {
  protected:
    Log log;
    Watcher a{log, "a"};
    Watcher b{log, "b"};
    Watcher c{log, "c"};
    Thing thing;

    Log told() { return std::exchange(log, {}); }
};

TEST_F(NSObservableTest, TellsOnceAfterTheSetterAlsoWithoutAChange) {
    thing.addObserver(&a, colour);
    int seen = -1;
    a.then = [&] { seen = thing.colourValue; };
    thing.setColour(7);
    EXPECT_EQ(told(), Log{"a colour"});
    EXPECT_EQ(seen, 7);
    EXPECT_EQ(a.origin, &thing);
    thing.setColour(7);
    EXPECT_EQ(told(), Log{"a colour"});
}

TEST_F(NSObservableTest, TellsOfTheObservedPropertyOnly) {
    thing.addObserver(&a, colour);
    thing.setShape();
    EXPECT_EQ(told(), Log{});
    thing.addObserver(&b, shape);
    thing.setShape();
    EXPECT_EQ(told(), Log{"b shape"});
}

TEST_F(NSObservableTest, TellsInTheOrderOfRegistration) {
    thing.addObserver(&b, colour);
    thing.addObserver(&a, colour);
    thing.addObserver(&c, colour);
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"b colour", "a colour", "c colour"}));
}

TEST_F(NSObservableTest, AnObserverThatIsRegisteredTwiceIsToldTwice) {
    thing.addObserver(&a, colour);
    thing.addObserver(&a, colour);
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "a colour"}));
    thing.removeObserver(&a, colour);
    thing.setColour(1);
    EXPECT_EQ(told(), Log{"a colour"});
}

TEST_F(NSObservableTest, RemovingUndoesTheLatestRegistration) {
    thing.addObserver(&a, colour);
    thing.addObserver(&b, colour);
    thing.addObserver(&a, colour);
    thing.removeObserver(&a, colour);
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "b colour"}));
}

TEST_F(NSObservableTest, APathToThePropertyGivesItsOriginAndItsName) {
    NSObject whole;
    thing.addObserver(&a, colourOfPart, whole);
    thing.setColour(1);
    EXPECT_EQ(told(), Log{"a part.colour"});
    EXPECT_EQ(a.origin, &whole);
}

TEST_F(NSObservableTest, RegistrationsOfSeveralOriginsAreToldApart) {
    NSObject one;
    NSObject two;
    thing.addObserver(&a, colourOfPart, one);
    thing.addObserver(&a, colourOfPart, two);
    thing.removeObserver(&a, colourOfPart, one);
    thing.setColour(1);
    EXPECT_EQ(told(), Log{"a part.colour"});
    EXPECT_EQ(a.origin, &two);
}

TEST_F(NSObservableTest, RemovingWhatIsNotRegisteredIsRefused) {
    NSObject other;
    thing.addObserver(&a, colour);
    const auto refusal = [&](auto call) -> std::string {
        try {
            call();
        } catch (const NSException& e) {
            return e.what();
        }
        return "none";
    };
    const std::string text =
        "NSInvalidArgumentException: The observer is not registered for \"colour\".";
    EXPECT_EQ(refusal([&] { thing.removeObserver(&b, colour); }), text);
    EXPECT_EQ(refusal([&] { thing.removeObserver(&a, colour, other); }), text);
    EXPECT_EQ(refusal([&] { thing.removeObserver(&a, shape); }),
              "NSInvalidArgumentException: The observer is not registered for \"shape\".");
    EXPECT_EQ(refusal([&] { thing.addObserver(nullptr, colour); }),
              "NSInvalidArgumentException: An observer cannot be null.");
    thing.setColour(1);
    EXPECT_EQ(told(), Log{"a colour"});
}

TEST_F(NSObservableTest, AnObserverAddedMeanwhileHearsOfTheNextChange) {
    for (const bool several : {false, true}) {
        Thing observed;
        if (several)
            observed.addObserver(&c, colour);
        observed.addObserver(&a, colour);
        a.then = [&] {
            observed.addObserver(&b, colour);
            a.then = nullptr;
        };
        observed.setColour(1);
        EXPECT_EQ(told(), several ? (Log{"c colour", "a colour"}) : Log{"a colour"});
        observed.setColour(1);
        EXPECT_EQ(told(), several ? (Log{"c colour", "a colour", "b colour"})
                                  : (Log{"a colour", "b colour"}));
    }
}

TEST_F(NSObservableTest, AnObserverRemovedMeanwhileIsNotToldAnyMore) {
    thing.addObserver(&a, colour);
    thing.addObserver(&b, colour);
    thing.addObserver(&c, colour);
    a.then = [&] {
        thing.removeObserver(&b, colour);
        a.then = nullptr;
    };
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "c colour"}));
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "c colour"}));
}

TEST_F(NSObservableTest, AnObserverMayRemoveItselfMeanwhile) {
    for (const bool several : {false, true}) {
        Thing observed;
        observed.addObserver(&a, colour);
        if (several)
            observed.addObserver(&b, colour);
        a.then = [&] { observed.removeObserver(&a, colour); };
        observed.setColour(1);
        EXPECT_EQ(told(), several ? (Log{"a colour", "b colour"}) : Log{"a colour"});
        observed.setColour(1);
        EXPECT_EQ(told(), several ? Log{"b colour"} : Log{});
    }
}

TEST_F(NSObservableTest, OneThatIsReplacedMeanwhileKeepsTheOrder) {
    thing.addObserver(&a, colour);
    thing.addObserver(&b, colour);
    a.then = [&] {
        thing.removeObserver(&a, colour);
        for (int i = 0; i < 20; ++i)  // moves the registrations in memory
            thing.addObserver(&c, shape);
        thing.addObserver(&a, colour);
        a.then = nullptr;
    };
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "b colour"}));
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"b colour", "a colour"}));
}

TEST_F(NSObservableTest, ASetterCalledByAnObserverTellsAtOnce) {
    thing.addObserver(&a, colour);
    thing.addObserver(&b, colour);
    thing.addObserver(&b, shape);
    a.then = [&] { thing.setShape(); };
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "b shape", "b colour"}));
}

TEST_F(NSObservableTest, ARemovalInsideASetterInsideASetterHolds) {
    thing.addObserver(&a, colour);
    thing.addObserver(&b, shape);
    thing.addObserver(&c, colour);
    a.then = [&] { thing.setShape(); };
    b.then = [&] { thing.removeObserver(&c, colour); };
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "b shape"}));
    b.then = nullptr;
    thing.setColour(1);
    EXPECT_EQ(told(), (Log{"a colour", "b shape"}));
}

TEST_F(NSObservableTest, SeveralHundredAreToldInOrderAndRemovedInAnyOrder) {
    // Past the number from which registrations are found by their hash, and back below it.
    constexpr int count = 300;
    std::vector<NSObject> origins(count);
    std::vector<bool> registered(count);
    std::vector<int> order;
    const auto tellsAsExpected = [&] {
        std::vector<NSObject*> seen;
        a.then = [&] { seen.push_back(a.origin); };
        thing.setColour(1);
        std::vector<NSObject*> expected;
        for (const int i : order)
            expected.push_back(&origins[static_cast<std::size_t>(i)]);
        EXPECT_EQ(seen, expected);
    };
    const auto add = [&](int i) {
        thing.addObserver(&a, colourOfPart, origins[static_cast<std::size_t>(i)]);
        order.push_back(i);
    };
    const auto remove = [&](int i) {
        thing.removeObserver(&a, colourOfPart, origins[static_cast<std::size_t>(i)]);
        order.erase(std::prev(std::find(order.rbegin(), order.rend(), i).base()));
    };
    for (int i = 0; i < count; ++i)
        add(i);
    tellsAsExpected();
    for (int i = 0; i < count; i += 3)
        remove(i);
    tellsAsExpected();
    for (int i = 0; i < count; i += 3) {
        add(i);
        add(i);
    }
    tellsAsExpected();
    for (int i = count - 1; i >= 2; --i) {
        remove(i);
        if (i % 3 == 0)
            remove(i);
        if (i % 17 == 0)
            tellsAsExpected();
    }
    EXPECT_EQ(order, (std::vector<int>{1, 0, 0}));
    tellsAsExpected();
    EXPECT_THROW(thing.removeObserver(&a, colourOfPart, origins[2]), NSException);
    remove(0);
    remove(0);
    EXPECT_THROW(thing.removeObserver(&a, colourOfPart, origins[0]), NSException);
    remove(1);
    tellsAsExpected();
}

TEST_F(NSObservableTest, AllOfManyMayBeRemovedAndReplacedWhileTheyAreTold) {
    constexpr int count = 200;
    std::vector<NSObject> origins(count);
    for (auto& origin : origins)
        thing.addObserver(&a, colourOfPart, origin);
    a.then = [&] {
        for (auto& origin : origins) {
            thing.removeObserver(&a, colourOfPart, origin);
            thing.addObserver(&b, colourOfPart, origin);
        }
        a.then = nullptr;
    };
    thing.setColour(1);
    EXPECT_EQ(told(), Log{"a part.colour"});
    thing.setColour(1);
    EXPECT_EQ(told(), Log(count, "b part.colour"));
}

// Were each searched for among the others, this would not end in hours.
TEST_F(NSObservableTest, AMillionAreRemovedFromEitherEndAsFastAsOne) {
    constexpr std::size_t count = 1000000;
    std::vector<NSObject> origins(count);
    for (const bool fromTheFront : {true, false}) {
        for (auto& origin : origins)
            thing.addObserver(&a, colourOfPart, origin);
        for (std::size_t i = 0; i < count; ++i)
            thing.removeObserver(&a, colourOfPart, origins[fromTheFront ? i : count - 1 - i]);
    }
    for (std::size_t i = 0; i < count; ++i)
        thing.addObserver(&a, colour);
    for (std::size_t i = 0; i < count; ++i)
        thing.removeObserver(&a, colour);
    thing.setColour(1);
    EXPECT_EQ(told(), Log{});
}

TEST_F(NSObservableTest, AnObserverThatThrowsLeavesTheOthersRegistered) {
    thing.addObserver(&a, colour);
    thing.addObserver(&b, colour);
    a.then = [&] {
        thing.removeObserver(&a, colour);
        throw NSException("Name", "why");
    };
    EXPECT_THROW(thing.setColour(1), NSException);
    EXPECT_EQ(told(), Log{"a colour"});
    thing.setColour(1);
    EXPECT_EQ(told(), Log{"b colour"});
}

}  // namespace
}  // namespace morvane
