// A strict little JSON reader for the tests of the demo's report: it accepts
// exactly RFC 8259 JSON (no trailing commas, no comments) and fails on
// anything else, so a report that parses here is valid JSON.
#ifndef TOCRA_TESTS_JSON_READER_H
#define TOCRA_TESTS_JSON_READER_H

#include <cctype>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace tocra_test {

struct Json {
    enum Type { kNull, kBool, kNumber, kString, kArray, kObject };
    Type type = kNull;
    bool boolean = false;
    double number = 0.0;
    std::string text;
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    bool Has(const std::string& key) const {
        for (const auto& m : members) {
            if (m.first == key) return true;
        }
        return false;
    }
    // The member, or a null value when there is none.
    const Json& operator[](const std::string& key) const {
        for (const auto& m : members) {
            if (m.first == key) return m.second;
        }
        static const Json none;
        return none;
    }
    const Json& operator[](size_t i) const {
        static const Json none;
        return i < items.size() ? items[i] : none;
    }
    size_t size() const { return type == kArray ? items.size() : members.size(); }
    int Int() const { return static_cast<int>(number); }
};

class JsonParser {
public:
    explicit JsonParser(const std::string& text) : s_(text) {}

    bool Parse(Json* out) {
        if (!Value(out, 0)) return false;
        Space();
        return pos_ == s_.size();
    }
    size_t position() const { return pos_; }

private:
    void Space() {
        while (pos_ < s_.size() && (s_[pos_] == ' ' || s_[pos_] == '\n' || s_[pos_] == '\r' || s_[pos_] == '\t')) {
            ++pos_;
        }
    }
    bool Eat(char c) {
        Space();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    bool Word(const char* w) {
        const std::string word(w);
        if (s_.compare(pos_, word.size(), word) != 0) return false;
        pos_ += word.size();
        return true;
    }
    bool String(std::string* out) {
        if (!Eat('"')) return false;
        while (pos_ < s_.size()) {
            const char c = s_[pos_++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                *out += c;
                continue;
            }
            if (pos_ >= s_.size()) return false;
            const char e = s_[pos_++];
            switch (e) {
                case '"': *out += '"'; break;
                case '\\': *out += '\\'; break;
                case '/': *out += '/'; break;
                case 'b': *out += '\b'; break;
                case 'f': *out += '\f'; break;
                case 'n': *out += '\n'; break;
                case 'r': *out += '\r'; break;
                case 't': *out += '\t'; break;
                case 'u': {
                    if (pos_ + 4 > s_.size()) return false;
                    for (int i = 0; i < 4; ++i) {
                        if (!isxdigit(static_cast<unsigned char>(s_[pos_ + i]))) return false;
                    }
                    const long code = strtol(s_.substr(pos_, 4).c_str(), nullptr, 16);
                    pos_ += 4;
                    *out += code < 0x80 ? static_cast<char>(code) : '?';
                    break;
                }
                default: return false;
            }
        }
        return false;
    }
    bool Number(double* out) {
        const size_t start = pos_;
        if (pos_ < s_.size() && s_[pos_] == '-') ++pos_;
        if (pos_ >= s_.size() || !isdigit(static_cast<unsigned char>(s_[pos_]))) return false;
        if (s_[pos_] == '0' && pos_ + 1 < s_.size() && isdigit(static_cast<unsigned char>(s_[pos_ + 1]))) {
            return false;  // no leading zeros
        }
        while (pos_ < s_.size() && isdigit(static_cast<unsigned char>(s_[pos_]))) ++pos_;
        if (pos_ < s_.size() && s_[pos_] == '.') {
            ++pos_;
            if (pos_ >= s_.size() || !isdigit(static_cast<unsigned char>(s_[pos_]))) return false;
            while (pos_ < s_.size() && isdigit(static_cast<unsigned char>(s_[pos_]))) ++pos_;
        }
        if (pos_ < s_.size() && (s_[pos_] == 'e' || s_[pos_] == 'E')) {
            ++pos_;
            if (pos_ < s_.size() && (s_[pos_] == '+' || s_[pos_] == '-')) ++pos_;
            if (pos_ >= s_.size() || !isdigit(static_cast<unsigned char>(s_[pos_]))) return false;
            while (pos_ < s_.size() && isdigit(static_cast<unsigned char>(s_[pos_]))) ++pos_;
        }
        *out = strtod(s_.substr(start, pos_ - start).c_str(), nullptr);
        return true;
    }
    bool Value(Json* v, int depth) {
        if (depth > 64) return false;
        Space();
        if (pos_ >= s_.size()) return false;
        const char c = s_[pos_];
        if (c == '{') {
            ++pos_;
            v->type = Json::kObject;
            if (Eat('}')) return true;
            do {
                std::pair<std::string, Json> m;
                if (!String(&m.first) || !Eat(':') || !Value(&m.second, depth + 1)) return false;
                v->members.push_back(std::move(m));
            } while (Eat(','));
            return Eat('}');
        }
        if (c == '[') {
            ++pos_;
            v->type = Json::kArray;
            if (Eat(']')) return true;
            do {
                Json item;
                if (!Value(&item, depth + 1)) return false;
                v->items.push_back(std::move(item));
            } while (Eat(','));
            return Eat(']');
        }
        if (c == '"') {
            v->type = Json::kString;
            return String(&v->text);
        }
        if (Word("true")) {
            v->type = Json::kBool;
            v->boolean = true;
            return true;
        }
        if (Word("false")) {
            v->type = Json::kBool;
            return true;
        }
        if (Word("null")) return true;
        v->type = Json::kNumber;
        return Number(&v->number);
    }

    const std::string& s_;
    size_t pos_ = 0;
};

}  // namespace tocra_test

#endif
