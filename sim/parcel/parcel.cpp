// orvix-parcel: the bytes of a record or of a call's arguments as JSON, and back.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <iostream>

#include "sim/json/Json.h"
#include "sim/json/Names.h"
#include "sim/parcel/Objects.h"
#include "sim/parcel/Walk.h"

namespace sim {
namespace {

struct Answer {
    std::string text;
    std::string note;
};

// A record, or the arguments of a method.
struct Subject {
    std::string name;
    std::string signature;
    Answer (*decode)(const std::string& hex);
    Answer (*encode)(const std::string& json);
};

template <typename Value>
Answer decode(const std::string& hex) {
    const Bytes bytes = bytesOfHex(hex);
    const ndk::ScopedAParcel parcel(AParcel_create());
    binder_status_t status = AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size());
    if (status != STATUS_OK) throw BadInput(nameOfStatus(status) + ": " + std::to_string(bytes.size()) + " bytes");
    Walk walk(parcel.get());
    Value value;
    if constexpr (orvix::Record<Value>) {
        walk.walkRecord<Value>();
        AParcel_setDataPosition(parcel.get(), 0);
        status = value.readFromParcel(parcel.get());
    } else {
        walk.walkArguments(static_cast<Value*>(nullptr));
        AParcel_setDataPosition(parcel.get(), 0);
        status = orvix::readArguments(parcel.get(), value);
    }
    // The library's readers decide; the walk only says where.
    if (status != STATUS_OK) throw BadInput(nameOfStatus(status) + ' ' + walk.failure);
    Json json = toJson(value);
    if (walk.remoteBinder) {  // the one that stands in for it is of this process
        std::replace(json.begin(), json.end(), Json("local binder"), Json("remote binder"));
    }
    if (bytes.size() % 4 != 0) {
        walk.notes.insert(walk.notes.begin(),
                          std::to_string(bytes.size()) + " bytes, filled up with zeros to whole words of 4");
    }
    std::string note;
    for (const std::string& text : walk.notes) note += (note.empty() ? "" : "; ") + text;
    return {json.dump(), note};
}

// As words: a parcel that holds objects does not give its bytes.
std::string contentOf(const AParcel* parcel, const std::vector<int32_t>& objects) {
    std::vector<int32_t> words(static_cast<size_t>(AParcel_getDataSize(parcel)) / 4);
    AParcel_setDataPosition(parcel, 0);
    for (int32_t& word : words) AParcel_readInt32(parcel, &word);
    for (const int32_t at : objects) {
        const auto object = words.begin() + at / 4;
        std::fill(object + kLocalFrom, object + kObjectWords, 0);
    }
    Bytes bytes(words.size() * 4);
    if (!words.empty()) std::memcpy(bytes.data(), words.data(), bytes.size());
    return hexOf(bytes);
}

template <typename R>
Answer encodeRecord(const std::string& json) {
    R record;
    fromJson(parseJson(json), record);
    const ndk::ScopedAParcel parcel(AParcel_create());
    const binder_status_t status = record.writeToParcel(parcel.get());
    if (status != STATUS_OK) throw BadInput(nameOfStatus(status));
    return {contentOf(parcel.get(), {}), ""};
}

template <typename Arguments>
Answer encodeCall(const std::string& json) {
    Arguments arguments;
    fromJson(parseJson(json), arguments);
    const ndk::ScopedAParcel parcel(AParcel_create());
    std::vector<int32_t> objects;
    int number = 0;
    [[maybe_unused]] const auto write = [&]<typename T>(const T& argument) {
        const int32_t at = AParcel_getDataPosition(parcel.get());
        if constexpr (Descriptor<T>) objects.push_back(at + 4 * static_cast<int32_t>(kDescriptorFrom));
        if constexpr (Object<T>) objects.push_back(at);
        ++number;
        const binder_status_t status = orvix::writeValue(parcel.get(), argument);
        if (status == STATUS_OK) return;
        throw BadInput(nameOfStatus(status) + " at byte " + std::to_string(at) + " in argument " +
                       std::to_string(number) + " (" + typeName<T>() + ")");
    };
    std::apply([&](const auto&... args) { (write(args), ...); }, arguments);
    return {contentOf(parcel.get(), objects), ""};
}

template <typename I>
void addMethods(std::vector<Subject>& subjects) {
    forEachMethod<I>([&](const auto& row) {
        using Arguments = ArgumentsOf<decltype(row)>;
        subjects.push_back({shortName(I::descriptor) + '.' + row.name,
                            std::to_string(row.code) + ' ' + typeName<Arguments>(), decode<Arguments>,
                            encodeCall<Arguments>});
    });
}

std::vector<Subject> allSubjects() {
    std::vector<Subject> subjects;
    const auto addRecord = [&]<typename R>(const R&) {
        std::string members;
        forEachMember<R>([&](const auto& field) {
            members += (members.empty() ? "" : ", ") + typeName<std::remove_cvref_t<decltype(R().*field.member)>>() +
                       ' ' + field.name;
        });
        subjects.push_back({typeName<R>(), "{" + members + "}", decode<R>, encodeRecord<R>});
    };
    std::apply([&](const auto&... records) { (addRecord(records), ...); }, Records());
    addMethods<orvix::IOrvixService>(subjects);
    addMethods<orvix::IRequest>(subjects);
    return subjects;
}

// Answers one item; false after an error line. `place` says where the item was.
bool serve(const Subject& subject, bool decodes, const std::string& item, const std::string& place) {
    try {
        const Answer found = (decodes ? subject.decode : subject.encode)(item);
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
        "  orvix-parcel encode BatteryState '{\"int1\":7,\"flag1\":true}'\n"
        "  orvix-parcel decode IOrvixService.sendFGNetworkInfo 050000000700000015cd5b0700000000\n"
        "  orvix-parcel encode IRequest.startUidStatsPolling '[5000]'\n"
        "  orvix-parcel list\n"
        "Exit 1: bad input, one line on the error output; 2: wrong usage.");
    std::string name, item;
    CLI::App* const decode = app.add_subcommand("decode", "hex to JSON");
    CLI::App* const encode = app.add_subcommand("encode", "JSON to hex");
    for (CLI::App* const command : {decode, encode}) {
        command->add_option("NAME", name, "a record, or Interface.method")->required();
        command->add_option(command == decode ? "HEX" : "JSON", item, "-: one a line from the standard input")
            ->required();
    }
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
