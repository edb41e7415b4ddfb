#include "Pages.h"

#include <sys/random.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "Html.h"
#include "Plots.h"

namespace gateway {

namespace {

constexpr char style[] = R"css(
:root { color-scheme: light dark; --text: #1b1f24; --soft: #59636e; --back: #ffffff; --card: #f6f8fa;
  --line: #d1d9e0; --accent: #0b62c4; --second: #b3541e; --stop: #b3261e; }
@media (prefers-color-scheme: dark) { :root { --text: #e6edf3; --soft: #9198a1; --back: #0d1117; --card: #161b22;
  --line: #3d444d; --accent: #58a6ff; --second: #f0a05a; --stop: #ff7b72; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 46rem; padding: 1.5rem 1rem 3rem; background: var(--back); color: var(--text);
  font: 1rem/1.5 system-ui, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.5rem; line-height: 1.25; margin: 0 0 1rem; }
h1.stop { color: var(--stop); }
.card { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; padding: 1rem 1.25rem;
  margin: 1rem 0; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .25rem 1rem; margin: 0; }
dt { color: var(--soft); }
dd { margin: 0; }
code { font-family: ui-monospace, monospace; font-size: .9em; }
form { display: flex; gap: .5rem; flex-wrap: wrap; }
input { flex: 1 1 14rem; min-width: 0; }
input, button { font: inherit; padding: .45rem .7rem; border: 1px solid var(--line); border-radius: .4rem;
  background: var(--back); color: inherit; }
button { background: var(--accent); border-color: var(--accent); color: var(--back); cursor: pointer; }
figure { margin: 1.5rem 0 0; }
figcaption { font-weight: 600; margin-bottom: .25rem; }
figcaption span { font-weight: 400; margin-left: .75rem; }
span.s0::before, span.s1::before { content: ""; display: inline-block; width: .9rem; height: .2rem;
  vertical-align: middle; margin-right: .3rem; background: var(--accent); }
span.s1::before { background: var(--second); }
svg { width: 100%; height: auto; display: block; font-size: 12px; }
svg text { fill: var(--soft); }
svg .y { text-anchor: end; }
svg .n { fill: var(--text); }
svg .grid { stroke: var(--line); stroke-width: .6; }
svg path { fill: none; stroke-width: 2; stroke-linecap: round; stroke-linejoin: round; }
svg path.s0 { stroke: var(--accent); }
svg path.s1 { stroke: var(--second); }
svg rect.s0 { fill: var(--accent); }
.soft { color: var(--soft); }
)css";

// Replaces only the plots, every minute, so that input in the form is kept.
constexpr char refreshScript[] = R"js(
setInterval(async () => {
  try {
    const page = new DOMParser().parseFromString(await (await fetch("/")).text(), "text/html");
    document.getElementById("plots").replaceWith(page.getElementById("plots"));
  } catch (error) {}
}, 60000);
)js";

std::string nonce() {
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) return "";
    std::string string;
    for (const unsigned char byte : bytes) {
        string += "0123456789abcdef"[byte >> 4];
        string += "0123456789abcdef"[byte & 15];
    }
    return string;
}

// `title` and `body` are HTML; `script` is code or empty.
Page page(const std::string& title, const std::string& body, const std::string& script = "") {
    const std::string word = nonce();
    Page result;
    result.contentSecurityPolicy = "default-src 'none'; style-src 'nonce-" + word +
                                   "'; form-action 'self'; base-uri 'none'; frame-ancestors 'none'";
    std::string scriptElement;
    if (!script.empty()) {
        result.contentSecurityPolicy += "; script-src 'nonce-" + word + "'; connect-src 'self'";
        scriptElement = "<script nonce=\"" + word + "\">" + script + "</script>\n";
    }
    result.html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"robots\" content=\"noindex\">\n<title>" +
        title + "</title>\n<style nonce=\"" + word + "\">" + style + "</style>\n</head>\n<body>\n" + body +
        scriptElement + "</body>\n</html>\n";
    return result;
}

std::string lookUpHtml(const LookUp& lookUp) {
    std::string html =
        "<form action=\"/\" method=\"get\" role=\"search\">\n"
        "<input type=\"text\" name=\"url\" aria-label=\"URL\" placeholder=\"https://www.example.org/page\" "
        "maxlength=\"20000\" autocomplete=\"off\" autocapitalize=\"none\" spellcheck=\"false\" value=\"" +
        escaped(lookUp.url) + "\" autofocus>\n<button>Look up</button>\n</form>\n";
    if (lookUp.url.empty()) return html;
    html += "<section class=\"card\">\n";
    if (!lookUp.problem.empty()) {
        html += "<p>" + escaped(lookUp.problem) + ".</p>\n";
    } else {
        std::string list;
        for (const std::string& category : lookUp.categories)
            list += (list.empty() ? "" : ", ") + escaped(category);
        if (list.empty())
            list = lookUp.isKnown ? "none: katd knows that the URL has no category"
                                  : "unknown: katd has no certain answer now";
        html += "<dl>\n" + row("URL", "<code>" + shownUrl(lookUp.url) + "</code>") +
                row("Categories", "<strong>" + list + "</strong>") + lookUp.explanation + "</dl>\n";
    }
    return html + "</section>\n";
}

std::string plotsHtml(const std::vector<History::Minute>& minutes, const tools::CategoryNames& names) {
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    Series rate{"", {}};
    Series known{"", {}};
    Series failed{"", {}};
    Series median{"half of the answers", {}};
    Series slow{"99 of 100", {}};
    std::array<std::uint64_t, 256> categories{};
    for (const History::Minute& minute : minutes) {
        const double questions = minute.questions;
        const double answers = questions - minute.failed;
        const bool isCounted = minute.number >= 0;
        rate.values.push_back(isCounted ? questions / 60 : none);
        known.values.push_back(answers > 0 ? 100 * minute.known / answers : none);
        failed.values.push_back(isCounted ? minute.failed : none);
        median.values.push_back(answers > 0 ? minute.latencySec(0.5) * 1e3 : none);
        slow.values.push_back(answers > 0 ? minute.latencySec(0.99) * 1e3 : none);
        for (std::size_t i = 0; i < categories.size(); ++i)
            categories[i] += minute.categories[i];
    }
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < categories.size(); ++i) {
        if (categories[i] > 0) order.push_back(i);
    }
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return categories[a] > categories[b]; });
    std::vector<Bar> bars;
    for (std::size_t i = 0; i < std::min<std::size_t>(order.size(), 10); ++i) {
        const std::string number = std::to_string(order[i]);
        const std::string& name = names.nameOf(static_cast<std::uint32_t>(order[i]));
        bars.push_back(
            {name.empty() ? number : number + " " + name, static_cast<double>(categories[order[i]])});
    }
    const std::int64_t last = minutes.back().number;
    return "<section id=\"plots\">\n<h2>The last six hours</h2>\n" +
           linePlot("Questions a second", "/s", {rate}, last) +
           linePlot("Share of known URLs", "%", {known}, last) + barPlot("Most frequent categories", bars) +
           linePlot("Time for an answer", "ms", {median, slow}, last) +
           linePlot("Questions without an answer, a minute", "", {failed}, last) + "</section>\n";
}

}  // namespace

Page blockedPage(const Policy& policy, std::string_view url, const std::string& category) {
    const std::string title = escaped(policy.title);
    std::string rows = row("Site", "<code>" + shownUrl(hostOf(url), 100) + "</code>");
    if (!category.empty()) rows += row("Category", escaped(category));
    rows += row("Address", "<code>" + shownUrl(url) + "</code>");
    std::string body = "<main>\n<h1 class=\"stop\">" + title + "</h1>\n<p>" + escaped(policy.text) +
                       "</p>\n<div class=\"card\"><dl>\n" + rows + "</dl></div>\n";
    if (!policy.contact.empty()) body += "<p class=\"soft\">" + escaped(policy.contact) + "</p>\n";
    return page(title, body + "</main>\n");
}

Page notBlockedPage(std::string_view url) {
    return page("Not blocked",
                "<main>\n<h1>This address is not blocked</h1>\n<p><code>" + shownUrl(url) +
                    "</code> passes the filter now. If it was refused a moment ago, load it again.</p>\n"
                    "</main>\n");
}

Page problemPage(const std::string& title, const std::string& sentence) {
    return page(escaped(title),
                "<main>\n<h1>" + escaped(title) + "</h1>\n<p>" + escaped(sentence) + ".</p>\n</main>\n");
}

Page administratorPage(const LookUp& lookUp, const std::vector<History::Minute>& minutes,
                       const tools::CategoryNames& names) {
    return page("katd",
                "<main>\n<h1>What does katd know?</h1>\n" + lookUpHtml(lookUp) + plotsHtml(minutes, names) +
                    "</main>\n",
                refreshScript);
}

}  // namespace gateway
