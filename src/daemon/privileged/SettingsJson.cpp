#include "SettingsJson.h"

namespace settingsjson {

namespace {

class Parser
{
public:
    explicit Parser(std::string_view text) : s(text) {}

    bool document(Value &out)
    {
        skipSpace();
        if (!value(out, 0)) return false;
        skipSpace();
        return pos == s.size();
    }

private:
    std::string_view s;
    std::size_t pos = 0;

    void skipSpace()
    {
        while (pos < s.size() &&
               (s[pos] == ' ' || s[pos] == '\t' || s[pos] == '\n' || s[pos] == '\r'))
            ++pos;
    }

    bool literal(std::string_view word)
    {
        if (s.substr(pos, word.size()) != word) return false;
        pos += word.size();
        return true;
    }

    bool value(Value &out, std::size_t depth)
    {
        if (pos >= s.size()) return false;
        switch (s[pos]) {
        case '{':
            return object(out, depth + 1);
        case '[':
            return array(out, depth + 1);
        case '"':
            out.type = Value::Type::String;
            return string(out.text);
        case 't':
            out.type = Value::Type::Bool;
            out.boolean = true;
            return literal("true");
        case 'f':
            out.type = Value::Type::Bool;
            return literal("false");
        case 'n':
            out.type = Value::Type::Null;
            return literal("null");
        default:
            out.type = Value::Type::Number;
            return number(out.text);
        }
    }

    bool object(Value &out, std::size_t depth)
    {
        if (depth > kMaxDepth) return false;
        out.type = Value::Type::Object;
        ++pos; // '{'
        skipSpace();
        if (pos < s.size() && s[pos] == '}') {
            ++pos;
            return true;
        }
        for (;;) {
            skipSpace();
            std::string key;
            if (pos >= s.size() || s[pos] != '"' || !string(key)) return false;
            skipSpace();
            if (pos >= s.size() || s[pos] != ':') return false;
            ++pos;
            skipSpace();
            Value v;
            if (!value(v, depth)) return false;
            out.names.push_back(std::move(key));
            out.items.push_back(std::move(v));
            skipSpace();
            if (pos >= s.size()) return false;
            if (s[pos] == '}') {
                ++pos;
                return true;
            }
            if (s[pos] != ',') return false;
            ++pos;
        }
    }

    bool array(Value &out, std::size_t depth)
    {
        if (depth > kMaxDepth) return false;
        out.type = Value::Type::Array;
        ++pos; // '['
        skipSpace();
        if (pos < s.size() && s[pos] == ']') {
            ++pos;
            return true;
        }
        for (;;) {
            skipSpace();
            Value v;
            if (!value(v, depth)) return false;
            out.items.push_back(std::move(v));
            skipSpace();
            if (pos >= s.size()) return false;
            if (s[pos] == ']') {
                ++pos;
                return true;
            }
            if (s[pos] != ',') return false;
            ++pos;
        }
    }

    static bool isDigit(char c) { return c >= '0' && c <= '9'; }

    bool number(std::string &out)
    {
        const std::size_t start = pos;
        if (pos < s.size() && s[pos] == '-') ++pos;
        if (pos >= s.size() || !isDigit(s[pos])) return false;
        if (s[pos] == '0') {
            ++pos;
        } else {
            while (pos < s.size() && isDigit(s[pos]))
                ++pos;
        }
        if (pos < s.size() && s[pos] == '.') {
            ++pos;
            if (pos >= s.size() || !isDigit(s[pos])) return false;
            while (pos < s.size() && isDigit(s[pos]))
                ++pos;
        }
        if (pos < s.size() && (s[pos] == 'e' || s[pos] == 'E')) {
            ++pos;
            if (pos < s.size() && (s[pos] == '+' || s[pos] == '-')) ++pos;
            if (pos >= s.size() || !isDigit(s[pos])) return false;
            while (pos < s.size() && isDigit(s[pos]))
                ++pos;
        }
        out.assign(s.substr(start, pos - start));
        return true;
    }

    bool hex4(unsigned &v)
    {
        if (s.size() - pos < 4) return false;
        v = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = s[pos++];
            v <<= 4;
            if (c >= '0' && c <= '9')
                v |= unsigned(c - '0');
            else if (c >= 'a' && c <= 'f')
                v |= unsigned(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                v |= unsigned(c - 'A' + 10);
            else
                return false;
        }
        return true;
    }

    static void putUtf8(std::string &out, unsigned cp)
    {
        if (cp < 0x80) {
            out.push_back(char(cp));
        } else if (cp < 0x800) {
            out.push_back(char(0xc0 | (cp >> 6)));
            out.push_back(char(0x80 | (cp & 0x3f)));
        } else if (cp < 0x10000) {
            out.push_back(char(0xe0 | (cp >> 12)));
            out.push_back(char(0x80 | ((cp >> 6) & 0x3f)));
            out.push_back(char(0x80 | (cp & 0x3f)));
        } else {
            out.push_back(char(0xf0 | (cp >> 18)));
            out.push_back(char(0x80 | ((cp >> 12) & 0x3f)));
            out.push_back(char(0x80 | ((cp >> 6) & 0x3f)));
            out.push_back(char(0x80 | (cp & 0x3f)));
        }
    }

    bool escape(std::string &out)
    {
        if (pos >= s.size()) return false;
        const char c = s[pos++];
        switch (c) {
        case '"':
        case '\\':
        case '/':
            out.push_back(c);
            return true;
        case 'b':
            out.push_back('\b');
            return true;
        case 'f':
            out.push_back('\f');
            return true;
        case 'n':
            out.push_back('\n');
            return true;
        case 'r':
            out.push_back('\r');
            return true;
        case 't':
            out.push_back('\t');
            return true;
        case 'u': {
            unsigned cp = 0;
            if (!hex4(cp)) return false;
            if (cp >= 0xd800 && cp <= 0xdbff && s.substr(pos, 2) == "\\u") {
                const std::size_t save = pos;
                pos += 2;
                unsigned low = 0;
                if (hex4(low) && low >= 0xdc00 && low <= 0xdfff) {
                    putUtf8(out, 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00));
                    return true;
                }
                pos = save;
            }
            // A lone surrogate has no UTF-8 form; it reads as the replacement character.
            putUtf8(out, (cp >= 0xd800 && cp <= 0xdfff) ? 0xfffd : cp);
            return true;
        }
        default:
            return false;
        }
    }

    bool string(std::string &out)
    {
        ++pos; // '"'
        while (pos < s.size()) {
            const char c = s[pos];
            if (c == '"') {
                ++pos;
                return true;
            }
            if (static_cast<unsigned char>(c) < 0x20) return false;
            ++pos;
            if (c == '\\') {
                if (!escape(out)) return false;
            } else {
                out.push_back(c);
            }
        }
        return false;
    }
};

} // namespace

const Value *Value::member(std::string_view key) const
{
    if (type != Type::Object) return nullptr;
    for (std::size_t i = names.size(); i-- > 0;)
        if (names[i] == key) return &items[i];
    return nullptr;
}

std::optional<Value> parse(std::string_view text)
{
    if (text.size() > kMaxInput) return std::nullopt;
    Value v;
    if (!Parser(text).document(v)) return std::nullopt;
    return v;
}

std::optional<std::vector<std::string>> protectedDiskKeys(std::string_view text)
{
    const std::optional<Value> doc = parse(text);
    if (!doc || doc->type != Value::Type::Object) return std::nullopt;
    std::vector<std::string> keys;
    const Value *disks = doc->member("PrefsProtectedDisks");
    if (!disks || disks->type != Value::Type::Object) return keys;
    keys = disks->names;
    return keys;
}

} // namespace settingsjson
