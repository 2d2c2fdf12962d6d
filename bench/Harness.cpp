// SPDX-License-Identifier: MIT
#include "Harness.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace bench {
namespace {

/// How many operations take about `runTime`. Warms up on the way.
std::size_t calibrate(const Contender& contender, std::chrono::nanoseconds runTime) {
    constexpr double mostAtOnce = 100;  // a first guess may be far off
    const auto wanted = static_cast<double>(runTime.count());
    std::size_t count = 1;
    for (;;) {
        const double took = std::max(contender.run(count), 1.0);
        if (took >= wanted / 2)
            return count;
        const double factor = std::clamp(wanted / took, 2.0, mostAtOnce);
        count = static_cast<std::size_t>(std::ceil(static_cast<double>(count) * factor));
    }
}

}  // namespace

Summary summarize(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto middle = values.size() / 2;
    const double median =
        values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

bool Line::isMet() const {
    return required.kind == Requirement::Kind::atMostTimes ? ratio->median <= required.bound
                                                           : ratio->median >= required.bound;
}

Line countedLine(std::string row, double count, std::string unit, double limit) {
    Line line;
    line.row = std::move(row);
    line.unit = std::move(unit);
    line.ours = summarize({count});
    line.limit = limit;
    line.ratio = summarize({count / limit});
    line.required = Requirement::atMostTimes(1);
    return line;
}

std::vector<Line> compare(const Comparison& comparison, const Options& options) {
    std::vector<const Contender*> contenders{&comparison.ours};
    for (const auto& peer : comparison.peers)
        contenders.push_back(&peer);
    std::vector<std::size_t> counts;
    for (const auto* contender : contenders)
        counts.push_back(calibrate(*contender, options.runTime));

    // [contender][run], nanoseconds for one operation
    std::vector<std::vector<double>> times(contenders.size());
    for (std::size_t run = 0; run < options.pairs; ++run) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            times[i].push_back(contenders[i]->run(counts[i]) / static_cast<double>(counts[i]));
        }
    }

    Line line;
    line.row = comparison.row;
    line.asRate = comparison.asRate;
    line.ours = summarize(times[0]);
    line.note = comparison.note;
    line.required = comparison.required;
    if (comparison.limit) {
        line.limit = comparison.limit;
        std::vector<double> ratios;
        for (double time : times[0])
            ratios.push_back(time / *comparison.limit);
        line.ratio = summarize(std::move(ratios));
    }
    if (comparison.peers.empty())
        return {line};
    std::vector<Line> lines;
    const bool faster = comparison.required.kind == Requirement::Kind::timesFaster;
    for (std::size_t i = 1; i < contenders.size(); ++i) {
        std::vector<double> ratios;
        for (std::size_t run = 0; run < options.pairs; ++run) {
            const double ratio = times[0][run] / times[i][run];
            ratios.push_back(faster ? 1 / ratio : ratio);
        }
        line.peerName = contenders[i]->name;
        line.peer = summarize(times[i]);
        line.ratio = summarize(std::move(ratios));
        if (i > 1) {
            line.required = {};
            line.note.clear();
        }
        lines.push_back(line);
    }
    return lines;
}

}  // namespace bench
