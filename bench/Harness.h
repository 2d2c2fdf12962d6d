// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Times our way of doing something beside other ways of doing it, in alternating runs: ours, the
/// first peer, the second, ours again, ... so that whatever else the machine does meets all alike.
namespace bench {

/// One way of doing it. `run` does it `count` times and returns the nanoseconds that this took,
/// without what it had to set up and clear away.
struct Contender {
    std::string name;
    std::function<double(std::size_t count)> run;
};

/// What the measured ratio must be.
struct Requirement {
    enum class Kind {
        /// Nothing: the line is there to be looked at.
        none,
        /// Our time is at most `bound` times the peer's; the ratio is ours to the peer's.
        atMostTimes,
        /// We are at least `bound` times as fast; the ratio is the peer's time to ours.
        timesFaster,
    };
    Kind kind = Kind::none;
    double bound = 0;

    static Requirement atMostTimes(double bound) { return {Kind::atMostTimes, bound}; }
    static Requirement timesFaster(double bound) { return {Kind::timesFaster, bound}; }
};

struct Comparison {
    std::string row;
    Contender ours;
    /// The first is the one that is required; the others stand beside it.
    std::vector<Contender> peers;
    Requirement required;
    /// A limit in nanoseconds in the place of peers.
    std::optional<double> limit;
    /// Shows calls a second in the place of times.
    bool asRate = false;
    /// For people: what else was counted.
    std::string note;
};

/// Median and spread of several runs.
struct Summary {
    double median = 0;
    double min = 0;
    double max = 0;
};
Summary summarize(std::vector<double> values);

/// One line of the table: ours beside one peer.
struct Line {
    std::string row;
    bool asRate = false;
    /// In the place of nanoseconds.
    bool isBytes = false;
    /// What else is counted in their place; `limit` as well.
    std::string unit;
    Summary ours;
    std::string peerName;
    std::optional<Summary> peer;
    std::optional<double> limit;
    std::optional<Summary> ratio;
    Requirement required;
    std::string note;

    bool isRequired() const { return required.kind != Requirement::Kind::none; }
    /// Only if required.
    bool isMet() const;
};

struct Options {
    /// Runs of each contender.
    std::size_t pairs = 9;
    /// A run has as many operations as take about this long.
    std::chrono::milliseconds runTime{100};
};

/// A line of what was counted, which is required to be at most `limit`.
Line countedLine(std::string row, double count, std::string unit, double limit);

/// One line for each peer, or one if there is none.
std::vector<Line> compare(const Comparison& comparison, const Options& options);

/// Keeps the compiler from leaving out what makes `value`.
template <class T>
void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

/// The nanoseconds that `work` takes.
template <class Work>
double timed(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start)
        .count();
}

/// A contender's run that just does `once` again and again.
template <class Once>
std::function<double(std::size_t)> repeated(Once once) {
    return [once = std::move(once)](std::size_t count) mutable {
        return timed([&] {
            for (std::size_t i = 0; i < count; ++i)
                once();
        });
    };
}

}  // namespace bench
