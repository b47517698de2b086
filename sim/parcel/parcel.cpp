// orvix-parcel: the bytes of a record or of a call's arguments as JSON, and back.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "sim/json/BadInput.h"
#include "sim/json/Names.h"
#include "sim/parcel/Subject.h"

namespace sim {
namespace {

// Answers one item; false after an error line. `place` says where the item was.
bool serve(const Subject& subject, bool decodes, const std::string& item, const std::string& place) {
    try {
        const Answer found = decodes ? sim::decode(subject, item) : sim::encode(subject, item);
        std::cout << found.text << std::endl;
        if (!found.note.empty()) std::cerr << "orvix-parcel: " << place << "note: " << found.note << std::endl;
        return true;
    } catch (const BadInput& error) {
        std::cerr << "orvix-parcel: " << place << subject.name << ": " << error.what() << std::endl;
        return false;
    }
}

bool serveInput(const Subject& subject, bool decodes) {
    bool good = true;
    size_t number = 0;
    for (std::string line; std::getline(std::cin, line);) {
        if (line.ends_with('\r')) line.pop_back();
        good &= serve(subject, decodes, line, "line " + std::to_string(++number) + ": ");
    }
    return good;
}

int run(int argc, char** argv) {
    CLI::App app("Shows the bytes of a record or of a call's arguments as JSON, and makes them.", "orvix-parcel");
    app.require_subcommand(1);
    app.footer(
        "  orvix-parcel decode BatteryState 0c0000000700000001000000\n"
        "  orvix-parcel decode BatteryState 0x0c 0x00 0x00 0x00 07000000 01000000\n"
        "  orvix-parcel encode BatteryState '{\"int1\":7,\"flag1\":true}'\n"
        "  orvix-parcel decode IOrvixService.sendFGNetworkInfo 050000000700000015cd5b0700000000\n"
        "  orvix-parcel encode IRequest.startUidStatsPolling '[5000]'\n"
        "  orvix-parcel decode IRequest.getInterfaceVersion.reply 0000000007000000\n"
        "  orvix-parcel list\n"
        "HEX: as captured, with blanks, line breaks, commas and 0x; of a call with or without its interface token.\n"
        "Exit 1: bad input, one line on the error output; 2: wrong usage.");
    std::string name, item;
    CLI::App* const decode = app.add_subcommand("decode", "hex to JSON");
    CLI::App* const encode = app.add_subcommand("encode", "JSON to hex");
    for (CLI::App* const command : {decode, encode}) {
        command->add_option("NAME", name, "a record, or Interface.method")->required();
    }
    const std::string input = "-: one a line from the standard input";
    // Bytes may come as several words.
    decode->add_option("HEX", item, input)->required()->expected(1, -1)->join(' ');
    encode->add_option("JSON", item, input)->required();
    const CLI::App* const list = app.add_subcommand("list", "all records with members, all methods with codes");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "orvix-parcel: " << error.what() << "; orvix-parcel --help shows how" << std::endl;
        return 2;
    }

    const std::vector<Subject> subjects = allSubjects();
    bool good = true;
    if (list->parsed()) {
        for (const Subject& subject : subjects) std::cout << subject.name << ' ' << subject.signature << '\n';
    } else {
        const auto found =
            std::find_if(subjects.begin(), subjects.end(), [&](const Subject& s) { return s.name == name; });
        if (found == subjects.end()) {
            std::vector<std::string> names;
            names.reserve(subjects.size());
            for (const Subject& subject : subjects) names.push_back(subject.name);
            std::cerr << "orvix-parcel: no record or method " << name << "; nearest: " << nearest(name, names)
                      << std::endl;
            return 2;
        }
        good = item == "-" ? serveInput(*found, decode->parsed()) : serve(*found, decode->parsed(), item, "");
    }
    if (std::cout.flush()) return good ? 0 : 1;
    std::cerr << "orvix-parcel: cannot write the output" << std::endl;
    return 1;
}

}  // namespace
}  // namespace sim

// Out of memory there is nothing to do but end.
int main(int argc, char** argv) { return sim::run(argc, argv); }  // NOLINT(bugprone-exception-escape)
