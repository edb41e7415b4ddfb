#include "Explanation.h"

#include <algorithm>
#include <sstream>

#include "Html.h"
#include "tools/Child.h"
#include "tools/Json.h"

namespace gateway {

namespace {

using tools::Json;

constexpr tools::ChildLimits limits{std::chrono::seconds(10), 1 << 20};

// A string of the object as code; empty if it has none.
std::string code(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? std::string() : "<code>" + shownUrl(found->get<std::string>()) + "</code>";
}

// The object's own name for its category comes before that of the settings.
std::string categoryHtml(const Json& object, const tools::CategoryNames& names) {
    const auto number = object.at("category").get<std::uint32_t>();
    const std::string name = object.value("name", names.nameOf(number));
    return std::to_string(number) + (name.empty() ? "" : " " + escaped(name));
}

std::string catalogHtml(const Json& catalog, const tools::CategoryNames& names) {
    const std::string path = code(catalog, "catalog");
    if (catalog.contains("error"))
        return row("Catalogue", path + " " + escaped(catalog.at("error").get<std::string>()));
    if (catalog.contains("reason"))
        return row("Catalogue", path + " " + escaped(catalog.at("reason").get<std::string>()));
    std::string html;
    for (const Json& entry : catalog.at("entries")) {
        std::string item = code(entry, "entry");
        if (entry.at("instead").get<bool>()) item += ", an exception: less specific entries do not count";
        if (!entry.at("counts").get<bool>()) item += ", does not count: below an exception";
        for (const Json& one : entry.at("categories"))
            item += "<br>" + categoryHtml(one, names) + ", from " + code(one, "list") + " (" +
                    std::to_string(one.at("lines").get<std::uint64_t>()) + " lines)";
        if (entry.at("categories").empty()) item += "<br>no category";
        html += row("Entry", item);
    }
    html.insert(0, row("Catalogue", path + (html.empty() ? ": no entry covers the URL" : "")));
    if (catalog.contains("shared"))
        html +=
            row("Shared store", "asked next; <code>katc why</code> names the command that shows its entries");
    return html;
}

std::string objectHtml(const Json& object, const katclient_answer& answer,
                       const tools::CategoryNames& names) {
    std::string html;
    if (object.contains("looked_up")) html += row("Looked up as", code(object, "looked_up"));
    if (!object.contains("list"))
        return html + row("Found by", "the engine: katd's own lists do not have the URL") +
               catalogHtml(object.at("catalog"), names);
    const bool isPrefix = object.at("match").get<std::string>() == "prefix";
    html += row("Found by", std::string(isPrefix ? "the list of URLs, " : "the list of domains, ") +
                                code(object, "list")) +
            row("Item", code(object, "item") +
                            (isPrefix ? ", with which the URL begins" : ", which is the host") + "<br>" +
                            categoryHtml(object, names));
    if (answer.count != 1 || answer.categories[0] != object.at("category").get<std::uint32_t>())
        html += row(
            "Note",
            "katd answers otherwise: the list was changed since katd read it. <code>katc ctl reload</code> "
            "makes katd read its lists again.");
    return html;
}

}  // namespace

std::string Explainer::ask(const std::string& url) {
    const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock()) return "Another URL is being looked up at this moment. Load the page again.";
    std::string output;
    std::string problem;
    if (tools::runChild({"katc", "why", "--json", "--", url}, limits, &output, &problem)) return output;
    return "The lists could not be searched: " + problem + ".";
}

std::string explanationHtml(const std::string& output, const katclient_answer& answer,
                            const tools::CategoryNames& names) {
    std::string html;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const Json object = tools::parseJson(line);
        if (!object.is_object()) {
            html += row("Note", escaped(line));
            continue;
        }
        try {
            html += objectHtml(object, answer, names);
        } catch (const Json::exception&) {
            html += row("Note", "katc and katd-http are of different versions.");
        }
    }
    return html;
}

}  // namespace gateway
