#include "sim/json/Names.h"

#include <android/binder_auto_utils.h>

#include <algorithm>
#include <cctype>
#include <numeric>

namespace sim {
namespace {

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Letters to insert, delete or replace; the missing end of a name counts as one.
size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min(replaced, 1 + std::min(row[j], row[j - 1]));
        }
    }
    return std::min(row[b.size()], 1 + *std::min_element(row.begin(), row.end()));
}

}  // namespace

std::string nameOfStatus(binder_status_t status) {
    // Status(-129, EX_TRANSACTION_FAILED): 'NOT_ENOUGH_DATA: '
    const std::string text = ndk::ScopedAStatus::fromStatus(status).getDescription();
    const size_t begin = text.find('\'') + 1;
    return text.substr(begin, text.find(':', begin) - begin);
}

std::string nearest(const std::string& typed, const std::vector<std::string>& names) {
    constexpr size_t kMostLetters = 100;  // longer than every name: the rest changes nothing
    constexpr size_t kMostNames = 3;
    const std::string wanted = lower(typed.substr(0, kMostLetters));
    size_t least = SIZE_MAX;
    std::vector<std::string> found;
    for (const std::string& name : names) {
        const std::string whole = lower(name);
        const size_t away = std::min(distance(wanted, whole), distance(wanted, whole.substr(whole.rfind('.') + 1)));
        if (away < least) found.clear();
        if (away <= least) found.push_back(name);
        least = std::min(least, away);
    }
    if (found.size() > kMostNames) found.resize(kMostNames);
    std::string text;
    for (size_t i = 0; i < found.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == found.size() ? " or " : ", ") + found[i];
    }
    return text;
}

}  // namespace sim
