// SPDX-License-Identifier: MIT
#include <MorvaneOperation/Nfs4Acl.h>

#include <algorithm>
#include <charconv>

namespace morvane {

namespace {

constexpr std::size_t wordSize = 4;
/// The fixed words of one entry.
constexpr std::size_t namedEntrySize = 4 * wordSize;
constexpr std::size_t numberedEntrySize = 5 * wordSize;

/// Reads big-endian words from the front. After the first one that is missing, every read fails.
class WordReader {
  public:
    explicit WordReader(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

    std::uint32_t word() {
        const auto bytes = take(wordSize);
        std::uint32_t value = 0;
        for (const auto byte : bytes)
            value = value << 8U | byte;
        return value;
    }

    /// A text of `length` bytes and the zeros that fill its last word.
    std::string text(std::size_t length) {
        const auto bytes = take(length);
        for (const auto byte : take((wordSize - length % wordSize) % wordSize)) {
            if (byte != 0)
                good_ = false;
        }
        return {bytes.begin(), bytes.end()};
    }

    bool good() const { return good_; }
    std::size_t left() const { return rest_.size(); }

  private:
    std::span<const std::uint8_t> take(std::size_t size) {
        if (size > rest_.size()) {
            good_ = false;
            rest_ = {};
            return {};
        }
        const auto taken = rest_.first(size);
        rest_ = rest_.subspan(size);
        return taken;
    }

    std::span<const std::uint8_t> rest_;
    bool good_ = true;
};

void appendWord(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    for (unsigned shift = 32; shift != 0;) {
        shift -= 8;
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

struct Special {
    const char* who;
    std::uint32_t id;
};
constexpr Special specials[] = {{nfs4Owner, 1}, {nfs4OwningGroup, 2}, {nfs4Everyone, 3}};

bool isKnownType(std::uint32_t type) {
    return type <= Nfs4Alarm;
}

bool isGoodWho(const std::string& who) {
    return !who.empty() && who.size() <= maxNfs4Who && who.find('\0') == std::string::npos;
}

std::optional<Nfs4Acl> decodeNamed(WordReader reader) {
    const auto count = reader.word();
    if (!reader.good() || count > maxNfs4Entries || count > reader.left() / namedEntrySize)
        return std::nullopt;
    Nfs4Acl acl;
    acl.entries.resize(count);
    for (auto& entry : acl.entries) {
        entry.type = reader.word();
        entry.flags = reader.word();
        entry.mask = reader.word();
        const auto length = reader.word();
        if (length > maxNfs4Who)
            return std::nullopt;
        entry.who = reader.text(length);
        if (!reader.good() || !isKnownType(entry.type) || !isGoodWho(entry.who))
            return std::nullopt;
    }
    if (reader.left() != 0)
        return std::nullopt;
    return acl;
}

std::optional<Nfs4Acl> decodeNumbered(WordReader reader) {
    Nfs4Acl acl;
    acl.flags = reader.word();
    const auto count = reader.word();
    if (!reader.good() || count > maxNfs4Entries || reader.left() != count * numberedEntrySize)
        return std::nullopt;
    acl.entries.resize(count);
    for (auto& entry : acl.entries) {
        entry.type = reader.word();
        entry.flags = reader.word();
        const auto special = reader.word();
        entry.mask = reader.word();
        const auto id = reader.word();
        if (!isKnownType(entry.type) || special > 1)
            return std::nullopt;
        if (special == 0) {
            entry.who = std::to_string(id);
            continue;
        }
        const auto* found = std::find_if(std::begin(specials), std::end(specials),
                                         [&](const Special& s) { return s.id == id; });
        if (found == std::end(specials))
            return std::nullopt;
        entry.who = found->who;
    }
    return acl;
}

std::optional<std::vector<std::uint8_t>> encodeNamed(const Nfs4Acl& acl) {
    if (acl.flags != 0)
        return std::nullopt;
    std::vector<std::uint8_t> bytes;
    appendWord(bytes, static_cast<std::uint32_t>(acl.entries.size()));
    for (const auto& entry : acl.entries) {
        if (!isKnownType(entry.type) || !isGoodWho(entry.who))
            return std::nullopt;
        appendWord(bytes, entry.type);
        appendWord(bytes, entry.flags);
        appendWord(bytes, entry.mask);
        appendWord(bytes, static_cast<std::uint32_t>(entry.who.size()));
        bytes.insert(bytes.end(), entry.who.begin(), entry.who.end());
        bytes.resize((bytes.size() + wordSize - 1) / wordSize * wordSize);
    }
    return bytes;
}

std::optional<std::vector<std::uint8_t>> encodeNumbered(const Nfs4Acl& acl) {
    std::vector<std::uint8_t> bytes;
    appendWord(bytes, acl.flags);
    appendWord(bytes, static_cast<std::uint32_t>(acl.entries.size()));
    for (const auto& entry : acl.entries) {
        const auto* special = std::find_if(std::begin(specials), std::end(specials),
                                           [&](const Special& s) { return s.who == entry.who; });
        const bool isSpecial = special != std::end(specials);
        const auto id = isSpecial ? std::optional(special->id) : idOfNfs4Who(entry.who);
        if (!isKnownType(entry.type) || !id)
            return std::nullopt;
        appendWord(bytes, entry.type);
        appendWord(bytes, entry.flags);
        appendWord(bytes, isSpecial ? 1 : 0);
        appendWord(bytes, entry.mask);
        appendWord(bytes, *id);
    }
    return bytes;
}

}  // namespace

const char* attributeOfForm(Nfs4Form form) {
    return form == Nfs4Form::named ? "system.nfs4_acl" : "system.nfs4_acl_xdr";
}

std::optional<Nfs4Acl> decodeNfs4Acl(std::span<const std::uint8_t> bytes, Nfs4Form form) {
    const WordReader reader(bytes);
    return form == Nfs4Form::named ? decodeNamed(reader) : decodeNumbered(reader);
}

std::optional<std::vector<std::uint8_t>> encodeNfs4Acl(const Nfs4Acl& acl, Nfs4Form form) {
    if (acl.entries.size() > maxNfs4Entries)
        return std::nullopt;
    return form == Nfs4Form::named ? encodeNamed(acl) : encodeNumbered(acl);
}

std::optional<std::uint32_t> idOfNfs4Who(const std::string& who) {
    std::uint32_t id = 0;
    const auto* end = who.data() + who.size();
    const auto [stopped, error] = std::from_chars(who.data(), end, id);
    // One spelling only, so that it is the same text again.
    if (error != std::errc() || stopped != end || (who.size() > 1 && who.front() == '0'))
        return std::nullopt;
    return id;
}

}  // namespace morvane
