// The answers of many firewalls as one list, the worst first.
#include "say/say.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

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
    static const std::map<std::string, grade> grades = {
        {"wrong", grade::wrong}, {"decide", grade::decide}, {"know", grade::know}, {"none", grade::none}};
    return grades.at(firewall.at("grade"));
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
        std::ifstream stream(answer);
        json data = json::parse(stream, skip_lines);
        firewall["status"] = std::clamp(data.at("status").get<int>(), 0, 2);
        firewall["release"] = data.at("release").get<int>();
        for (const char *key : {"grade", "verdict"})
            firewall[key] = data.at(key).get<std::string>();
        firewall["host_name"] = data.value("host_name", "");
        grade_of(firewall);
    } catch (const std::exception &) {
        firewall.update({{"status", 2}, {"release", 0}, {"grade", word(grade::wrong)}, {"host_name", ""}});
        firewall["verdict"] = "Trouble: the answer can't be read.";
    }
    firewall["answer"] = answer;
    std::error_code ignored;
    if (fs::exists(page, ignored))
        firewall["page"] = link_to(page, folder);
    return firewall;
}

} // namespace

int sum_up_fleet(const std::vector<std::string> &answers, const std::string &html, std::string &text, std::string &data,
                 std::string &page) {
    json rows = json::array();
    for (const std::string &answer : answers)
        rows.push_back(firewall_of(answer, fs::path("." / fs::path(html)).parent_path()));
    auto key = [](const json &each) {
        return std::make_tuple(-each["status"].get<int>(), grade_of(each), each["verdict"], each["name"]);
    };
    std::stable_sort(rows.begin(), rows.end(), [&](const json &a, const json &b) { return key(a) < key(b); });
    int status = 0;
    std::map<grade, size_t> counts;
    json alike = json::array(); // those with one verdict, which stand together
    for (const json &each : rows) {
        std::string name = each["name"], host = each["host_name"], verdict = each["verdict"], weight = each["grade"];
        if (alike.empty() || alike.back()["verdict"] != verdict)
            alike.push_back({{"verdict", verdict}, {"grade", weight}, {"firewalls", json::array()}});
        alike.back()["firewalls"].push_back(name);
        name += host.empty() || host == name ? "" : " (" + host + ")";
        std::string line = format("[{}] {}, release {}: {}", weight, name, each["release"].dump(), verdict);
        text += shown(line) + "\n";
        status = std::max(status, each["status"].get<int>());
        counts[grade_of(each)]++;
    }
    for (const json &each : alike) {
        std::vector<std::string> names = each["firewalls"];
        std::string verdict = each["verdict"], number = counted(names.size(), "firewall", "firewalls");
        text += format("\n{}: {}\n    {}\n", number, shown(verdict), shown(format("{}", fmt::join(names, ", "))));
    }
    std::string count = counted(rows.size(), "firewall", "firewalls"), verdict, worst = word(counts.begin()->first);
    for (auto [weight, number] : counts)
        verdict += format("{}{} {}", verdict.empty() ? "" : ", ", number,
                          weight == grade::none ? "with nothing to look at" : word(weight));
    json values{{"status", status}, {"grade", worst}, {"verdict", count + ": " + verdict}, {"verdicts", alike}};
    text += format("\n{}: {}.\n", count, verdict);
    values["firewalls"] = rows;
    data = dumped(values, 2) + "\n";
    std::string head = worst == word(grade::none) ? "Nothing to look at" : "The worst is: " + worst;
    values.update({{"title", "Fleet"}, {"subject", count}, {"head", head}});
    values["firewalls"] = {{"rows", std::move(rows)}};
    page = html.empty() ? "" : render_page(std::move(values));
    return status;
}
