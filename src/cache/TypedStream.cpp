#include "cache/TypedStream.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <map>
#include <utility>

namespace typedstream {
namespace {

constexpr std::uint8_t kStreamerVersion = 4;
constexpr std::string_view kLittleSignature = "streamtyped";
constexpr std::string_view kBigSignature = "typedstream";
constexpr std::int64_t kSystemVersion = 1000;

// Head bytes that are tags rather than values.
constexpr std::uint8_t kTagInt16 = 0x81;
constexpr std::uint8_t kTagInt32 = 0x82;
constexpr std::uint8_t kTagNew = 0x84;
constexpr std::uint8_t kTagNil = 0x85;
constexpr std::uint8_t kTagEndObject = 0x86;
constexpr std::uint8_t kTagInt64 = 0x87;

// Values in this range are the head byte itself. Table entry n is written as n + kSmallMin, so
// the first 238 entries of a table take one byte.
constexpr std::int64_t kSmallMin = -110;
constexpr std::int64_t kSmallMax = 127;
constexpr std::int64_t kInt16Limit = 32767; // the int16 form is used symmetrically

// Far beyond any well-formed information file; they only keep hostile input cheap. References
// let one stored string be used many times, hence the cap on what decoding may copy out.
constexpr std::size_t kMaxClassChain = 32;
constexpr std::size_t kMaxDecodedBytes = 16 * kMaxArchiveSize;

class Writer
{
public:
    explicit Writer(ByteOrder order) : m_order(order) {}

    std::string write(const Dictionary &dict)
    {
        writeByte(kStreamerVersion);
        writeUnshared(m_order == ByteOrder::Little ? kLittleSignature : kBigSignature);
        writeInteger(kSystemVersion);

        writeShared("@");
        beginObject({{"NSDictionary", 0}, {"NSObject", 0}});
        writeShared("i");
        writeInteger(static_cast<std::int64_t>(dict.size()));
        for (const Entry &entry : dict) {
            writeShared("@");
            writeString(entry.key);
            writeShared("@");
            if (const auto *number = std::get_if<std::int64_t>(&entry.value))
                writeNumber(*number);
            else
                writeString(std::get<std::string>(entry.value));
        }
        writeByte(kTagEndObject);
        return std::move(m_out);
    }

private:
    struct ClassLink
    {
        std::string_view name;
        std::int64_t version;
    };

    void writeByte(std::uint8_t byte) { m_out.push_back(static_cast<char>(byte)); }

    void writeFixed(std::uint64_t bits, int size)
    {
        for (int i = 0; i < size; ++i) {
            const int shift = 8 * (m_order == ByteOrder::Little ? i : size - 1 - i);
            writeByte(static_cast<std::uint8_t>(bits >> shift));
        }
    }

    void writeInteger(std::int64_t value)
    {
        const auto bits = static_cast<std::uint64_t>(value);
        if (value >= kSmallMin && value <= kSmallMax) {
            writeByte(static_cast<std::uint8_t>(bits));
        } else if (value >= -kInt16Limit && value <= kInt16Limit) {
            writeByte(kTagInt16);
            writeFixed(bits, 2);
        } else if (value >= std::numeric_limits<std::int32_t>::min() &&
                   value <= std::numeric_limits<std::int32_t>::max()) {
            writeByte(kTagInt32);
            writeFixed(bits, 4);
        } else {
            writeByte(kTagInt64);
            writeFixed(bits, 8);
        }
    }

    void writeReference(std::size_t index)
    {
        writeInteger(static_cast<std::int64_t>(index) + kSmallMin);
    }

    void writeUnshared(std::string_view text)
    {
        writeInteger(static_cast<std::int64_t>(text.size()));
        m_out.append(text);
    }

    void writeShared(std::string_view text)
    {
        if (const auto found = m_shared.find(text); found != m_shared.end()) {
            writeReference(found->second);
            return;
        }
        writeByte(kTagNew);
        writeUnshared(text);
        m_shared.emplace(std::string(text), m_shared.size());
    }

    // The object's number is taken before its class chain, which stops at the first class
    // already written.
    void beginObject(std::initializer_list<ClassLink> chain)
    {
        writeByte(kTagNew);
        ++m_objectCount;
        for (const ClassLink &link : chain) {
            if (const auto found = m_classes.find(link.name); found != m_classes.end()) {
                writeReference(found->second);
                return;
            }
            writeByte(kTagNew);
            m_classes.emplace(std::string(link.name), m_objectCount++);
            writeShared(link.name);
            writeInteger(link.version);
        }
        writeByte(kTagNil);
    }

    void writeString(std::string_view text)
    {
        beginObject({{"NSString", 1}, {"NSObject", 0}});
        writeShared("+");
        writeUnshared(text);
        writeByte(kTagEndObject);
    }

    void writeNumber(std::int64_t value)
    {
        beginObject({{"NSNumber", 0}, {"NSValue", 0}, {"NSObject", 0}});
        writeShared("*");
        // The original platform hands every 64-bit number the same type C string, and C strings
        // are shared by identity, so all numbers after the first refer to it.
        if (m_quadType) {
            writeReference(*m_quadType);
        } else {
            writeByte(kTagNew);
            m_quadType = m_objectCount++;
            writeShared("q");
        }
        writeShared("q");
        writeInteger(value);
        writeByte(kTagEndObject);
    }

    ByteOrder m_order;
    std::string m_out;
    std::map<std::string, std::size_t, std::less<>> m_shared;
    std::map<std::string, std::size_t, std::less<>> m_classes;
    std::size_t m_objectCount = 0;
    std::optional<std::size_t> m_quadType;
};

// One entry of the table shared by objects, classes and C strings.
struct Slot
{
    enum class Kind {
        Pending, // still being read: a reference to it would be a cycle
        Class,
        CString,
        Leaf, // a finished string or number
    };
    Kind kind = Kind::Pending;
    std::size_t text = 0; // shared-string index of a class name or C string
    Value value;
};

// The type string of the group being read and how much of it is used. A group may carry several
// values ("@@"), each taking the next character; a new group starts when it is used up.
struct Group
{
    std::optional<std::size_t> types;
    std::size_t used = 0;
};

class Reader
{
public:
    explicit Reader(std::string_view bytes) : m_in(bytes) {}

    std::optional<Dictionary> read()
    {
        if (m_in.size() > kMaxArchiveSize || !readHeader()) return std::nullopt;
        Group root;
        std::uint8_t head = 0;
        if (nextType(root) != '@' || !readByte(head) || head != kTagNew) return std::nullopt;
        m_objects.emplace_back(); // stays pending: nothing may refer to the root
        const auto className = readClassChain();
        if (!className || (m_shared[*className] != "NSDictionary" &&
                           m_shared[*className] != "NSMutableDictionary"))
            return std::nullopt;
        Group group;
        auto dict = readDictionaryContent(group);
        if (!dict || !endObject(group) || !finished(root) || m_pos != m_in.size() ||
            hasDuplicateKeys(*dict))
            return std::nullopt;
        return dict;
    }

private:
    std::size_t remaining() const { return m_in.size() - m_pos; }

    bool readByte(std::uint8_t &byte)
    {
        if (m_pos >= m_in.size()) return false;
        byte = static_cast<std::uint8_t>(m_in[m_pos++]);
        return true;
    }

    std::optional<std::uint64_t> readFixed(int size)
    {
        if (remaining() < static_cast<std::size_t>(size)) return std::nullopt;
        std::uint64_t bits = 0;
        for (int i = 0; i < size; ++i) {
            const auto byte = static_cast<std::uint8_t>(m_in[m_pos + static_cast<std::size_t>(i)]);
            bits |= std::uint64_t{byte} << (8 * (m_big ? size - 1 - i : i));
        }
        m_pos += static_cast<std::size_t>(size);
        return bits;
    }

    // The integer whose head byte was just read; nullopt for the tags that are not integers.
    std::optional<std::int64_t> integerAfter(std::uint8_t head)
    {
        switch (head) {
        case kTagInt16:
            if (const auto bits = readFixed(2))
                return static_cast<std::int16_t>(static_cast<std::uint16_t>(*bits));
            return std::nullopt;
        case kTagInt32:
            if (const auto bits = readFixed(4))
                return static_cast<std::int32_t>(static_cast<std::uint32_t>(*bits));
            return std::nullopt;
        case kTagInt64:
            if (const auto bits = readFixed(8)) return static_cast<std::int64_t>(*bits);
            return std::nullopt;
        default:
            break;
        }
        const auto value = static_cast<std::int8_t>(head);
        if (value < kSmallMin) return std::nullopt;
        return value;
    }

    std::optional<std::int64_t> readInteger()
    {
        std::uint8_t head = 0;
        if (!readByte(head)) return std::nullopt;
        return integerAfter(head);
    }

    // The table index a reference stands for, if the table already has it.
    static std::optional<std::size_t> indexFrom(std::int64_t reference, std::size_t tableSize)
    {
        if (reference < kSmallMin) return std::nullopt;
        const std::uint64_t index =
            static_cast<std::uint64_t>(reference) + static_cast<std::uint64_t>(-kSmallMin);
        if (index >= tableSize) return std::nullopt;
        return static_cast<std::size_t>(index);
    }

    std::optional<std::size_t> readReference(std::uint8_t head, std::size_t tableSize)
    {
        const auto reference = integerAfter(head);
        if (!reference) return std::nullopt;
        return indexFrom(*reference, tableSize);
    }

    // Unsigned types travel as the signed value of their width, so a negative value stands for
    // the upper half of the range.
    std::optional<std::int64_t> readUnsigned(int bits)
    {
        const auto value = readInteger();
        if (!value || *value >= 0) return value;
        if (bits == 64) return std::nullopt; // above what a signed 64-bit value holds
        const std::int64_t span = std::int64_t{1} << bits;
        if (*value < -span / 2) return std::nullopt;
        return *value + span;
    }

    std::optional<std::int64_t> readTypedInteger(char type)
    {
        std::uint8_t byte = 0;
        switch (type) {
        case 'c':
            if (!readByte(byte)) return std::nullopt;
            return static_cast<std::int8_t>(byte);
        case 'C':
        case 'B':
            if (!readByte(byte)) return std::nullopt;
            return byte;
        case 's':
        case 'i':
        case 'l':
        case 'q':
            return readInteger();
        case 'S':
            return readUnsigned(16);
        case 'I':
        case 'L':
            return readUnsigned(32);
        case 'Q':
            return readUnsigned(64);
        default:
            return std::nullopt;
        }
    }

    std::optional<std::string> readUnshared()
    {
        const auto length = readInteger();
        if (!length || *length < 0 || static_cast<std::uint64_t>(*length) > remaining())
            return std::nullopt;
        const auto size = static_cast<std::size_t>(*length);
        std::string text(m_in.substr(m_pos, size));
        m_pos += size;
        return text;
    }

    // Index of the shared string read, new or referred to.
    std::optional<std::size_t> readShared()
    {
        std::uint8_t head = 0;
        if (!readByte(head)) return std::nullopt;
        if (head != kTagNew) return readReference(head, m_shared.size());
        auto text = readUnshared();
        if (!text) return std::nullopt;
        m_shared.push_back(std::move(*text));
        return m_shared.size() - 1;
    }

    bool finished(const Group &group) const
    {
        return !group.types || group.used == m_shared[*group.types].size();
    }

    std::optional<char> nextType(Group &group)
    {
        if (finished(group)) {
            const auto types = readShared();
            if (!types || m_shared[*types].empty()) return std::nullopt;
            group = {types, 0};
        }
        return m_shared[*group.types][group.used++];
    }

    bool endObject(const Group &group)
    {
        std::uint8_t byte = 0;
        return finished(group) && readByte(byte) && byte == kTagEndObject;
    }

    bool readHeader()
    {
        std::uint8_t version = 0;
        std::uint8_t length = 0;
        if (!readByte(version) || version != kStreamerVersion || !readByte(length) ||
            length != kLittleSignature.size() || remaining() < length)
            return false;
        const std::string_view signature = m_in.substr(m_pos, length);
        m_pos += length;
        if (signature == kBigSignature)
            m_big = true;
        else if (signature != kLittleSignature)
            return false;
        // The system version says which platform release wrote the file; the layout we read
        // does not depend on it.
        return readInteger().has_value();
    }

    // Name (shared-string index) of the most derived class of the chain read.
    std::optional<std::size_t> readClassChain()
    {
        std::optional<std::size_t> name;
        for (std::size_t link = 0; link < kMaxClassChain; ++link) {
            std::uint8_t head = 0;
            if (!readByte(head)) return std::nullopt;
            if (head == kTagNil) return name;
            if (head != kTagNew) {
                const auto index = readReference(head, m_objects.size());
                if (!index || m_objects[*index].kind != Slot::Kind::Class) return std::nullopt;
                return name ? name : m_objects[*index].text;
            }
            const std::size_t slot = m_objects.size();
            m_objects.emplace_back();
            const auto className = readShared();
            // Versions are not checked: the content of each class is checked instead.
            if (!className || !readInteger()) return std::nullopt;
            m_objects[slot].kind = Slot::Kind::Class;
            m_objects[slot].text = *className;
            if (!name) name = className;
        }
        return std::nullopt;
    }

    std::optional<std::size_t> readCString()
    {
        std::uint8_t head = 0;
        if (!readByte(head)) return std::nullopt;
        if (head != kTagNew) {
            const auto index = readReference(head, m_objects.size());
            if (!index || m_objects[*index].kind != Slot::Kind::CString) return std::nullopt;
            return m_objects[*index].text;
        }
        const std::size_t slot = m_objects.size();
        m_objects.emplace_back();
        const auto text = readShared();
        if (!text) return std::nullopt;
        m_objects[slot].kind = Slot::Kind::CString;
        m_objects[slot].text = *text;
        return text;
    }

    std::optional<Value> readStringContent(Group &group)
    {
        if (nextType(group) != '+') return std::nullopt;
        auto bytes = readUnshared();
        if (!bytes) return std::nullopt;
        return Value(std::move(*bytes));
    }

    std::optional<Value> readNumberContent(Group &group)
    {
        if (nextType(group) != '*') return std::nullopt;
        const auto typeText = readCString();
        if (!typeText || m_shared[*typeText].size() != 1) return std::nullopt;
        // The value's own group names the type again; floating point and anything else that is
        // not one integer type does not belong in the information file.
        const char type = m_shared[*typeText].front();
        if (nextType(group) != type) return std::nullopt;
        const auto value = readTypedInteger(type);
        if (!value) return std::nullopt;
        return Value(*value);
    }

    // A key or value of the dictionary: a string or a number, new or referred to. Containers are
    // refused here, which also bounds the nesting.
    std::optional<Value> readLeaf()
    {
        std::uint8_t head = 0;
        if (!readByte(head)) return std::nullopt;
        if (head != kTagNew) {
            const auto index = readReference(head, m_objects.size());
            if (!index || m_objects[*index].kind != Slot::Kind::Leaf) return std::nullopt;
            return m_objects[*index].value;
        }
        const std::size_t slot = m_objects.size();
        m_objects.emplace_back();
        const auto className = readClassChain();
        if (!className) return std::nullopt;
        const std::string_view name = m_shared[*className];
        const bool isString = name == "NSString" || name == "NSMutableString";
        const bool isNumber = name == "NSNumber";
        Group group;
        std::optional<Value> value;
        if (isString)
            value = readStringContent(group);
        else if (isNumber)
            value = readNumberContent(group);
        if (!value || !endObject(group)) return std::nullopt;
        m_objects[slot].kind = Slot::Kind::Leaf;
        m_objects[slot].value = *value;
        return value;
    }

    std::optional<Dictionary> readDictionaryContent(Group &group)
    {
        const auto countType = nextType(group);
        if (!countType) return std::nullopt;
        const auto count = readTypedInteger(*countType);
        // An entry takes at least two bytes: one reference each for its key and its value.
        if (!count || *count < 0 || static_cast<std::uint64_t>(*count) > remaining() / 2)
            return std::nullopt;
        Dictionary dict;
        for (std::int64_t i = 0; i < *count; ++i) {
            if (nextType(group) != '@') return std::nullopt;
            auto key = readLeaf();
            if (!key || !std::holds_alternative<std::string>(*key) || nextType(group) != '@')
                return std::nullopt;
            auto value = readLeaf();
            if (!value) return std::nullopt;
            m_decodedBytes += std::get<std::string>(*key).size();
            if (const auto *text = std::get_if<std::string>(&*value))
                m_decodedBytes += text->size();
            if (m_decodedBytes > kMaxDecodedBytes) return std::nullopt;
            dict.push_back({std::get<std::string>(std::move(*key)), std::move(*value)});
        }
        return dict;
    }

    static bool hasDuplicateKeys(const Dictionary &dict)
    {
        std::vector<std::string_view> keys;
        keys.reserve(dict.size());
        for (const Entry &entry : dict)
            keys.push_back(entry.key);
        std::sort(keys.begin(), keys.end());
        return std::adjacent_find(keys.begin(), keys.end()) != keys.end();
    }

    std::string_view m_in;
    std::size_t m_pos = 0;
    bool m_big = false;
    std::vector<std::string> m_shared;
    std::vector<Slot> m_objects;
    std::size_t m_decodedBytes = 0;
};

} // namespace

std::string encodeDictionary(const Dictionary &dict, ByteOrder order)
{
    return Writer(order).write(dict);
}

std::optional<Dictionary> decodeDictionary(std::string_view bytes)
{
    return Reader(bytes).read();
}

std::optional<std::int64_t> integerFor(const Dictionary &dict, std::string_view key)
{
    for (const Entry &entry : dict) {
        if (entry.key == key) {
            if (const auto *number = std::get_if<std::int64_t>(&entry.value)) return *number;
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace typedstream
