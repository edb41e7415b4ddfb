#include "Plots.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "Html.h"

namespace gateway {

namespace {

// In units of the view box.
constexpr double width = 640;
constexpr double height = 200;
constexpr double left = 56;
constexpr double right = 8;
constexpr double top = 12;
constexpr double bottom = 24;

// With one decimal place.
std::string number(double value) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.1f", value);
    return digits;
}

// With three digits: 0.25, 12.5k, 3M.
std::string shortNumber(double value) {
    char digits[40];
    const char* const suffix = value >= 1e6 ? "M" : value >= 1e3 ? "k" : "";
    std::snprintf(digits, sizeof digits, "%.3g",
                  value >= 1e6   ? value / 1e6
                  : value >= 1e3 ? value / 1e3
                                 : value);
    return digits + std::string(suffix);
}

std::string text(const char* css, double x, double y, const std::string& string) {
    return "<text class=\"" + std::string(css) + "\" x=\"" + number(x) + "\" y=\"" + number(y) + "\">" +
           escaped(string) + "</text>";
}

// The upper end of an axis: 1, 2 or 5 times a power of ten.
double roundedUp(double value) {
    if (!(value > 0)) return 1;
    const double power = std::pow(10, std::floor(std::log10(value)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (value <= step * power) return step * power;
    }
    return 10 * power;
}

std::string clockTime(std::int64_t minute) {
    const std::time_t seconds = static_cast<std::time_t>(minute * 60);
    std::tm local{};
    localtime_r(&seconds, &local);
    char string[8];
    std::strftime(string, sizeof string, "%H:%M", &local);
    return string;
}

std::string figure(const std::string& title, const std::string& legend, double figureHeight,
                   const std::string& body) {
    return "<figure><figcaption>" + escaped(title) + legend + "</figcaption><svg viewBox=\"0 0 " +
           number(width) + " " + number(figureHeight) + "\" role=\"img\" aria-label=\"" + escaped(title) +
           "\">" + body + "</svg></figure>\n";
}

}  // namespace

std::string linePlot(const std::string& title, const std::string& unit, const std::vector<Series>& series,
                     std::int64_t lastMinute) {
    double largest = 0;
    std::size_t count = 0;
    for (const Series& one : series) {
        count = std::max(count, one.values.size());
        for (const double value : one.values) {
            if (value > largest) largest = value;
        }
    }
    const double limit = unit == "%" ? 100 : roundedUp(largest);
    const double span = std::max<double>(static_cast<double>(count) - 1, 1);
    const auto x = [&](std::size_t i) {
        return left + static_cast<double>(i) * (width - left - right) / span;
    };
    const auto y = [&](double value) { return height - bottom - value / limit * (height - top - bottom); };

    std::string body;
    for (int i = 0; i <= 4; ++i) {
        const double value = limit * i / 4;
        body += "<line class=\"grid\" x1=\"" + number(left) + "\" x2=\"" + number(width - right) +
                "\" y1=\"" + number(y(value)) + "\" y2=\"" + number(y(value)) + "\"/>";
        body += text("y", left - 6, y(value) + 4, shortNumber(value) + (i == 4 ? " " + unit : ""));
    }
    for (std::size_t i = 0; i < count; i += 60)
        body += text("x", x(i), height - 6, clockTime(lastMinute - static_cast<std::int64_t>(count - 1 - i)));
    std::string legend;
    for (std::size_t k = 0; k < series.size(); ++k) {
        const std::string css = "s" + std::to_string(k);
        // A gap ends a line: the next value begins another. A single value between gaps is a dot.
        std::string path;
        bool isOpen = false;
        for (std::size_t i = 0; i < series[k].values.size(); ++i) {
            const double value = series[k].values[i];
            if (std::isnan(value)) {
                isOpen = false;
                continue;
            }
            const std::string point = number(x(i)) + " " + number(y(value));
            path += isOpen ? "L" + point : "M" + point + "L" + point;
            isOpen = true;
        }
        body += "<path class=\"" + css + "\" d=\"" + path + "\"/>";
        if (!series[k].label.empty())
            legend += " <span class=\"" + css + "\">" + escaped(series[k].label) + "</span>";
    }
    return figure(title, legend, height, body);
}

std::string barPlot(const std::string& title, const std::vector<Bar>& bars) {
    constexpr double labelWidth = 190;
    constexpr double numberWidth = 60;
    constexpr double step = 22;
    double largest = 1;
    for (const Bar& bar : bars)
        largest = std::max(largest, bar.value);
    std::string body;
    double y = 4;
    for (const Bar& bar : bars) {
        const double length = bar.value / largest * (width - labelWidth - numberWidth);
        body += text("y", labelWidth - 6, y + 14, bar.label);
        body += "<rect class=\"s0\" x=\"" + number(labelWidth) + "\" y=\"" + number(y + 3) + "\" width=\"" +
                number(std::max(length, 1.0)) + "\" height=\"" + number(step - 8) + "\" rx=\"2\"/>";
        body += text("n", labelWidth + length + 6, y + 14, shortNumber(bar.value));
        y += step;
    }
    if (bars.empty()) body = text("n", 8, 18, "none yet");
    return figure(title, "", std::max(y + 4, 28.0), body);
}

}  // namespace gateway
