// The answers of many firewalls as one list, the worst first.
#include "say/say.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <unistd.h>

using fmt::format;
namespace fs = std::filesystem;

namespace {

// The path as a link from the folder: nothing in it is taken for a scheme, a query or a place in the page.
std::string link_to(const fs::path &page, const fs::path &folder) {
    std::string link = ".";
    for (unsigned char one : "/" + fs::absolute(page).lexically_relative(fs::absolute(folder)).string())
        link += isalnum(one) || strchr("/._-", one) ? std::string(1, static_cast<char>(one)) : format("%{:02X}", one);
    return link;
}

// Throws for a word that is no grade.
grade grade_of(const json &firewall) {
    for (grade each : {grade::wrong, grade::decide, grade::know, grade::none})
        if (firewall.at("grade") == word(each))
            return each;
    throw std::out_of_range("no such grade");
}

// What is told of a firewall. An answer that can't be read is trouble for it alone.
json firewall_of(const std::string &answer, const fs::path &folder) {
    fs::path path(answer), page = fs::path(answer).replace_extension(".html");
    auto skip_lines = [](int depth, json::parse_event_t event, const json &parsed) {
        return depth != 1 || event != json::parse_event_t::key || (parsed != "lines" && parsed != "origins");
    };
    bool is_folder = path.has_parent_path() && path.stem() == "review"; // a folder a firewall
    json firewall{{"name", is_folder ? path.parent_path().string() : fs::path(path).replace_extension().string()}};
    try {
        json data = json::parse(std::ifstream(answer), skip_lines);
        firewall.update({{"status", std::clamp(data.at("status").get<int>(), 0, 2)},
                         {"release", data.at("release").get<int>()},
                         {"grade", word(grade_of(data))},
                         {"verdict", data.at("verdict").get<std::string>()},
                         {"worst", std::count_if(data["findings"].begin(), data["findings"].end(),
                                                 [&](const json &told) { return told.at("grade") == data["grade"]; })},
                         {"host_name", data.value("host_name", "")}});
    } catch (const std::exception &) {
        firewall.update(
            {{"status", 2}, {"release", 0}, {"grade", word(grade::wrong)}, {"worst", 0}, {"host_name", ""}});
        const char *why = access(answer.c_str(), R_OK) == 0 ? "it is no answer of --json" : strerror(errno);
        firewall["verdict"] = format("Trouble: the answer can't be read: {}.", why);
    }
    firewall["answer"] = answer;
    std::error_code ignored;
    if (fs::exists(page, ignored))
        firewall["page"] = link_to(page, folder);
    return firewall;
}

std::string fleet_text(const json &fleet) {
    std::string text;
    for (const json &each : fleet["firewalls"]) {
        std::string name = each["name"], host = each["host_name"], weight = each["grade"], verdict = each["verdict"];
        name += host.empty() || host == name ? "" : " (" + host + ")";
        text += shown(format("[{}] {}, release {}: {}", weight, name, each["release"].dump(), verdict)) + "\n";
    }
    for (const json &each : fleet["verdicts"]) {
        std::vector<std::string> names = each["firewalls"];
        std::string verdict = each["verdict"], number = counted(names.size(), "firewall", "firewalls");
        text += format("\n{}: {}\n    {}\n", number, shown(verdict), shown(format("{}", fmt::join(names, ", "))));
    }
    return text + format("\n{}.\n", fleet["verdict"].get<std::string>());
}

} // namespace

reply sum_up_fleet(review_session &session) {
    json rows = json::array(), alike = rows; // alike: those with one verdict, which stand together
    for (const std::string &answer : session.words)
        rows.push_back(firewall_of(answer, fs::path("." / fs::path(session.html)).parent_path()));
    auto key = [](const json &each) {
        return std::make_tuple(-each["status"].get<int>(), grade_of(each), -each["worst"].get<long>(), each["verdict"],
                               each["name"]);
    };
    std::stable_sort(rows.begin(), rows.end(), [&](const json &a, const json &b) { return key(a) < key(b); });
    std::map<grade, size_t> counts;
    for (const json &each : rows) {
        if (alike.empty() || alike.back()["verdict"] != each["verdict"])
            alike.push_back({{"verdict", each["verdict"]}, {"grade", each["grade"]}, {"firewalls", json::array()}});
        alike.back()["firewalls"].push_back(each["name"]);
        counts[grade_of(each)]++;
    }
    session.subject = counted(rows.size(), "firewall", "firewalls");
    std::string verdict = session.subject;
    for (auto [weight, number] : counts)
        verdict += format("{} {} {}", weight == counts.begin()->first ? ":" : ",", number,
                          weight == grade::none ? "with nothing to look at" : word(weight));
    std::string worst = word(counts.begin()->first);
    json fleet{{"status", rows[0]["status"]},
               {"grade", worst},
               {"verdict", verdict},
               {"verdicts", alike},
               {"firewalls", rows}};
    std::string text = session.as_json        ? dumped(fleet, 2) + "\n"
                       : session.quiet        ? verdict + ".\n"
                       : session.html.empty() ? fleet_text(fleet)
                                              : "";
    fleet["head"] = worst == word(grade::none) ? "Nothing to look at" : "The worst is: " + worst;
    fleet["firewalls"] = {{"rows", rows}};
    return {fleet["status"], text, session.html.empty() ? "" : render_page(fleet, session)};
}
