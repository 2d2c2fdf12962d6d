#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>
#include <gtest/gtest.h>

#include <functional>
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
