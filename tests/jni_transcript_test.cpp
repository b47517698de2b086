// What the library does, line for line, against transcripts written by hand: tests/transcripts/*.txt.

#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <map>
#include <set>
#include <thread>

#include "client/AidlClient.h"
#include "tests/fake_jni.h"
#include "tests/jni_scenes.h"
#include "tests/process.h"

namespace {

using namespace orvix;
using scenes::play;

// The sections of a file: "== name" and lines up to the next one, without empty ones. What stands before the first, but
// for comments, is the section without a name.
std::map<std::string, std::string> sectionsOf(const std::string& path) {
    std::ifstream stream(path);
    std::map<std::string, std::string> sections;
    std::string* current = &sections[""];
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("== ")) {
            current = &sections[line.substr(3)];
        } else if (!line.empty() && !line.starts_with('#')) {
            *current += line + '\n';
        }
    }
    return sections;
}
std::map<std::string, std::string> scenesOf(const std::string& name) {
    return sectionsOf(TEST_SCENES "/" + name + ".txt");
}

// Plays the scenes of a file, each with a fresh client, and compares their transcripts whole. What stands before "--"
// is the preparation; without it, the file's own.
class Transcript : public testing::TestWithParam<const char*> {};

TEST_P(Transcript, IsWhatTheLibraryDoes) {
    const std::string between = "--\n";
    auto transcripts = sectionsOf(TEST_TRANSCRIPTS "/" + std::string(GetParam()) + ".txt");
    const auto scenes = scenesOf(GetParam());
    EXPECT_EQ(transcripts.size(), scenes.size());
    transcripts.erase("");
    for (const auto& [name, transcript] : transcripts) {
        SCOPED_TRACE(name);
        const size_t end = scenes.at(name).find(between);
        fake::reset();
        play(end == std::string::npos ? scenes.at("") : scenes.at(name).substr(0, end));
        fake::clearLines();
        play(end == std::string::npos ? scenes.at(name) : scenes.at(name).substr(end + between.size()));
        std::string played;
        for (const std::string& line : fake::lines()) played += line + '\n';
        EXPECT_EQ(transcript, played);
        EXPECT_EQ(quiet::script.misuse, decltype(quiet::script.misuse){}) << "misuse that was to be seen";
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Transcript, testing::Values("load", "requests", "natives", "availability", "sockets"),
                         [](const auto& tested) { return std::string(tested.param); });

// What other threads do meanwhile at a call that leaves the library: they call it, ask of it, and bind, for which
// serviceLock must be free.
bool othersGoOn() {
    const auto done = std::make_shared<std::promise<void>>();
    std::thread([done] {
        play("queryStats []");
        gAidlClient->pushEv({.type = 25});
        gAidlClient->bindToService();
        done->set_value();
    }).detach();
    return done->get_future().wait_for(orvix_test::patience()) == std::future_status::ready;
}

TEST(Locks, AreFreeAtEveryCallOutOfTheLibrary) {
    fake::reset();
    play("bound []");
    size_t calls = 0, transactions = 0;
    std::set<std::string> seen;  // others bind, which tells Java again: each line once for a method
    fake::script.then = [&, main = std::this_thread::get_id(),
                         method = std::string()](const std::string& line) mutable {
        const std::string kind = line.substr(0, line.find(' '));
        if (std::this_thread::get_id() != main || kind == "log" || kind == "binder") return;
        if (line.starts_with("jni GetMethodID")) method = line;
        if (!seen.insert(method + line).second) return;
        calls += line.starts_with("jni CallVoidMethod");
        transactions += kind == "transact";
        if (othersGoOn()) return;
        ADD_FAILURE() << "a lock is held at " << line;
        std::quick_exit(1);
    };
    const std::string natives = scenesOf("natives").at("unbound: every one but initialize");
    play(natives.substr(natives.find("sendRadioStatus")));
    play("sendBlobToMirel [5,\"hex:01\"]");
    for (int32_t code = kSendBlobToApk; code >= kServiceDown; --code) play("event [" + std::to_string(code) + "]");
    EXPECT_EQ(calls, 23u);
    EXPECT_EQ(transactions, 16u);
}

}  // namespace
