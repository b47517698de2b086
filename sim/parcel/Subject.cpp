#include "sim/parcel/Subject.h"

#include <algorithm>
#include <cstring>

#include "aidl/Codec.h"
#include "sim/json/Json.h"
#include "sim/json/Names.h"
#include "sim/parcel/Objects.h"
#include "sim/parcel/Walk.h"

namespace sim {
namespace {

namespace codec = aidl::vendor::nuvel::data::orvixservice;

// The interface of a call's token, if these bytes begin with one, whose size they get. A token: two words of the
// caller's, the platform's mark, the interface's descriptor.
std::string takeToken(const Bytes& bytes, size_t& size) {
    constexpr int32_t kMarkAt = 8, kDescriptorAt = 12;
    const ndk::ScopedAParcel parcel(AParcel_create());
    AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size());
    std::string descriptor;
    AParcel_setDataPosition(parcel.get(), kDescriptorAt);
    if (bytes.size() <= kDescriptorAt || std::memcmp(&bytes[kMarkAt], "SYST", 4) != 0 ||
        codec::readValue(parcel.get(), descriptor) != STATUS_OK) {
        return "";
    }
    size = std::min(bytes.size(), static_cast<size_t>(AParcel_getDataPosition(parcel.get())));
    return descriptor;
}

// Takes away a token of the call's interface, with a note.
void passToken(const Subject& subject, Bytes& bytes, std::vector<std::string>& notes) {
    size_t size = 0;
    const std::string token = takeToken(bytes, size);
    if (token.empty()) return;
    if (subject.isReply || !subject.name.starts_with(token.substr(token.rfind('.') + 1) + '.')) {
        throw BadInput("the bytes begin with the interface token of a call to " + token);
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    notes.push_back("the interface token in front takes " + std::to_string(size) + " bytes, which are not counted");
}

std::string joinedNotes(const std::vector<std::string>& notes) {
    std::string all;
    for (const std::string& note : notes) all += (all.empty() ? "" : "; ") + note;
    return all;
}

// As words: a parcel that holds objects does not give its bytes.
std::string contentOf(const AParcel* parcel, const std::vector<size_t>& objects) {
    std::vector<int32_t> words(static_cast<size_t>(AParcel_getDataSize(parcel)) / 4);
    AParcel_setDataPosition(parcel, 0);
    for (int32_t& word : words) AParcel_readInt32(parcel, &word);
    for (const size_t at : objects) std::fill_n(&words[at + kLocalFrom], kObjectWords - kLocalFrom, 0);
    Bytes bytes(words.size() * 4);
    if (!words.empty()) std::memcpy(bytes.data(), words.data(), bytes.size());
    return hexOf(bytes);
}

}  // namespace

std::vector<Subject> allSubjects() {
    std::vector<Subject> subjects;
    for (const Type* record : allRecords()) {
        std::string members;
        for (const Member& member : record->members) {
            members += (members.empty() ? "" : ", ") + member.type.name + ' ' + member.name;
        }
        subjects.push_back({record->name, '{' + members + '}', *record});
    }
    for (const Method& method : allMethods()) {
        subjects.push_back({method.interface + '.' + method.name,
                            std::to_string(method.code) + ' ' + method.arguments.name, method.arguments});
    }
    for (const Question& question : allQuestions()) {
        const std::string name = question.interface + '.' + question.name;
        subjects.push_back({name, std::to_string(question.code) + " ()", question.arguments});
        subjects.push_back({name + ".reply", question.reply.name, question.reply, true});
    }
    return subjects;
}

Answer decode(const Subject& subject, const std::string& hex) {
    Bytes bytes = bytesOfHex(hex);
    std::vector<std::string> notes;
    passToken(subject, bytes, notes);
    if (bytes.size() % 4 != 0) {
        notes.push_back(std::to_string(bytes.size()) + " bytes, filled up with zeros to whole words of 4");
    }
    const ndk::ScopedAParcel parcel(AParcel_create());
    binder_status_t status = AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size());
    if (status != STATUS_OK) throw BadInput(nameOfStatus(status) + ": " + std::to_string(bytes.size()) + " bytes");
    AParcel_setDataPosition(parcel.get(), 0);
    if (subject.isReply) {
        ndk::ScopedAStatus header;
        status = AParcel_readStatusHeader(parcel.get(), header.getR());
        if (status != STATUS_OK) throw BadInput(nameOfStatus(status) + " at byte 0 in the status");
        if (!header.isOk()) throw BadInput("no answer, but " + header.getDescription());
    }
    const int32_t begin = AParcel_getDataPosition(parcel.get());
    Walk walk(parcel.get());
    walk.walkWhole(subject.type);
    AParcel_setDataPosition(parcel.get(), begin);
    const std::shared_ptr<void> value = subject.type.make();
    status = subject.type.read(parcel.get(), value.get());
    // The library's readers decide; the walk only says where.
    if (status != STATUS_OK) throw BadInput(nameOfStatus(status) + ' ' + walk.failure);
    Json json = toJson(subject.type, value.get());
    if (walk.remoteBinder) {  // the one that stands in for it is of this process
        std::replace(json.begin(), json.end(), Json("local binder"), Json("remote binder"));
    }
    notes.insert(notes.end(), walk.notes.begin(), walk.notes.end());
    return {json.dump(), joinedNotes(notes)};
}

Answer encode(const Subject& subject, const std::string& json) {
    const std::shared_ptr<void> value = subject.type.make();
    fromJson(parseJson(json), subject.type, value.get());
    const ndk::ScopedAParcel parcel(AParcel_create());
    if (subject.isReply) AParcel_writeStatusHeader(parcel.get(), ndk::ScopedAStatus::ok().get());
    if (subject.type.kind == Type::Kind::kRecord) {
        const binder_status_t status = subject.type.write(parcel.get(), value.get());
        if (status != STATUS_OK) throw BadInput(nameOfStatus(status));
        return {contentOf(parcel.get(), {}), ""};
    }
    std::vector<size_t> objects;
    std::string note;
    for (const Member& argument : subject.type.members) {
        const int32_t at = AParcel_getDataPosition(parcel.get());
        const auto word = static_cast<size_t>(at) / 4;
        if (argument.type.kind == Type::Kind::kCallback) objects.push_back(word);
        if (argument.type.kind == Type::Kind::kDescriptor) {
            objects.push_back(word + kDescriptorFrom);
            note = kNoPath;
        }
        const binder_status_t status = writeArgument(parcel.get(), argument.type, argument.in(value.get()));
        if (status == STATUS_OK) continue;
        throw BadInput(nameOfStatus(status) + " at byte " + std::to_string(at) + " in " + argument.name + " (" +
                       argument.type.name + ")");
    }
    return {contentOf(parcel.get(), objects), note};
}

}  // namespace sim
