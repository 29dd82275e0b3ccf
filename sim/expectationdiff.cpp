// SPDX-License-Identifier: MIT
#include "sim/expectationdiff.h"

#include <algorithm>

namespace edidvm {
namespace sim {

namespace {
// Matched lines shown around each difference.
constexpr std::size_t Context = 2;
} // namespace

std::vector<Line> compare(std::size_t expected, std::size_t came,
                          const std::function<bool(std::size_t, std::size_t)>& same,
                          const std::function<bool(std::size_t, std::size_t)>& sameKind)
{
    std::vector<std::vector<int>> common(expected + 1, std::vector<int>(came + 1, 0));
    for (std::size_t i = expected; i-- > 0;) {
        for (std::size_t j = came; j-- > 0;)
            common[i][j] = same(i, j) ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    }
    std::vector<Line> lines;
    std::vector<int> missing;
    std::vector<int> extra;
    const auto flush = [&]() {
        std::size_t m = 0;
        std::size_t x = 0;
        std::size_t from = 0;
        for (std::size_t k = 0; k < missing.size(); ++k) {
            for (std::size_t l = from; l < extra.size(); ++l) {
                if (!sameKind(static_cast<std::size_t>(missing[k]), static_cast<std::size_t>(extra[l])))
                    continue;
                for (; m < k; ++m)
                    lines.push_back({'-', missing[m], -1});
                for (; x < l; ++x)
                    lines.push_back({'+', -1, extra[x]});
                lines.push_back({'!', missing[m++], extra[x++]});
                from = l + 1;
                break;
            }
        }
        for (; m < missing.size(); ++m)
            lines.push_back({'-', missing[m], -1});
        for (; x < extra.size(); ++x)
            lines.push_back({'+', -1, extra[x]});
        missing.clear();
        extra.clear();
    };
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < expected || j < came) {
        if (i < expected && j < came && same(i, j) && common[i][j] == common[i + 1][j + 1] + 1) {
            flush();
            lines.push_back({' ', static_cast<int>(i++), static_cast<int>(j++)});
        } else if (j < came && (i == expected || common[i][j + 1] >= common[i + 1][j])) {
            extra.push_back(static_cast<int>(j++));
        } else {
            missing.push_back(static_cast<int>(i++));
        }
    }
    flush();
    return lines;
}

void report(Trace& trace, std::size_t index, const char* what, const std::vector<Line>& lines, const Show& expected,
            const Show& came)
{
    int counts[3] = {0, 0, 0}; // differing, missing, unexpected
    std::vector<std::size_t> changed;
    for (std::size_t k = 0; k < lines.size(); ++k) {
        if (lines[k].mark == ' ')
            continue;
        ++counts[lines[k].mark == '!' ? 0 : lines[k].mark == '-' ? 1 : 2];
        changed.push_back(k);
    }
    if (changed.empty())
        return;
    const char* const names[3] = {"differing", "missing", "unexpected"};
    std::string summary;
    Fields record = {{"type", "failure"}, {"step", index}, {"what", what}};
    for (int c = 0; c < 3; ++c) {
        record[names[c]] = counts[c];
        if (counts[c] != 0)
            summary += (summary.empty() ? "" : ", ") + std::to_string(counts[c]) + " " + names[c];
    }
    trace.failure("step " + std::to_string(index) + ": the " + what + " differ from the expectation: " + summary,
                  record);

    const auto side = [](int position, const Show& show) {
        if (position < 0)
            return Fields();
        Fields fields = {{"index", position}};
        fields.update(show(position).record);
        return fields;
    };
    const auto context = [&](std::size_t c) {
        trace.difference(' ', "         #" + std::to_string(lines[c].came) + " " + came(lines[c].came).text, Fields());
    };
    std::size_t shownUpTo = 0; // lines before it are shown or skipped
    for (std::size_t k : changed) {
        const std::size_t first = k > Context ? std::max(k - Context, shownUpTo) : shownUpTo;
        if (first > shownUpTo)
            trace.difference(' ', "...", Fields());
        for (std::size_t c = first; c < k; ++c)
            context(c);
        const Line& line = lines[k];
        const char* change = line.mark == '!' ? "differing" : line.mark == '-' ? "missing" : "unexpected";
        const Fields detail = {{"type", "difference"},
                               {"step", index},
                               {"what", what},
                               {"change", change},
                               {"expected", side(line.expected, expected)},
                               {"came", side(line.came, came)}};
        if (line.expected >= 0)
            trace.difference(line.mark,
                             "expected #" + std::to_string(line.expected) + " " + expected(line.expected).text, detail);
        if (line.came >= 0)
            trace.difference(line.mark, "came     #" + std::to_string(line.came) + " " + came(line.came).text,
                             line.expected >= 0 ? Fields() : detail);
        shownUpTo = k + 1;
        // The context after this difference, up to the next one.
        for (std::size_t c = k + 1; c < lines.size() && c <= k + Context && lines[c].mark == ' '; ++c) {
            context(c);
            shownUpTo = c + 1;
        }
    }
    if (shownUpTo < lines.size())
        trace.difference(' ', "...", Fields());
}

} // namespace sim
} // namespace edidvm
