// Plots as SVG, to be embedded in a page that defines the classes of its style.
#ifndef GATEWAY_PLOTS_H
#define GATEWAY_PLOTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

struct Series {
    std::string label;           // of the legend; may be empty for a single series
    std::vector<double> values;  // one for each minute; NaN: none
};

// A line plot of series of equal length, one value a minute, the last one at `lastMinute` (minutes of the
// epoch, shown in local time). `unit` follows the numbers of the axis: "/s", "%", "ms".
std::string linePlot(const std::string& title, const std::string& unit, const std::vector<Series>& series,
                     std::int64_t lastMinute);

struct Bar {
    std::string label;
    double value;
};

// Horizontal bars with their numbers.
std::string barPlot(const std::string& title, const std::vector<Bar>& bars);

}  // namespace gateway

#endif
