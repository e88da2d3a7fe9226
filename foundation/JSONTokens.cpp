#include "foundation/JSONTokens.h"

#include <algorithm>
#include <simdjson.h>

namespace foundation {
namespace {

constexpr std::size_t firstCapacity = std::size_t{64} * 1024;
constexpr std::size_t exactDigits = 15; // integers of so many digits are exact in a double

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::size_t skipDigits(std::string_view text, std::size_t at) {
    while (at < text.size() && isDigit(text[at]))
        ++at;
    return at;
}

bool isNumber(std::string_view text) {
    std::size_t at = text.starts_with('-') ? 1 : 0;
    const std::size_t first = at;
    at = skipDigits(text, at);
    if (at == first || (text[first] == '0' && at > first + 1))
        return false;
    if (at < text.size() && text[at] == '.') {
        const std::size_t fraction = ++at;
        at = skipDigits(text, at);
        if (at == fraction)
            return false;
    }
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        if (at < text.size() && (text[at] == '+' || text[at] == '-'))
            ++at;
        const std::size_t exponent = at;
        at = skipDigits(text, at);
        if (at == exponent)
            return false;
    }
    return at == text.size();
}

void appendUtf8(std::string& text, char32_t code) {
    const auto tail = [&](int shift) { text.push_back(static_cast<char>(0x80 | ((code >> shift) & 0x3F))); };
    if (code < 0x80) {
        text.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        text.push_back(static_cast<char>(0xC0 | (code >> 6)));
        tail(0);
    } else if (code < 0x10000) {
        text.push_back(static_cast<char>(0xE0 | (code >> 12)));
        tail(6);
        tail(0);
    } else {
        text.push_back(static_cast<char>(0xF0 | (code >> 18)));
        tail(12);
        tail(6);
        tail(0);
    }
}

// The value of the four hexadecimal digits at `at`, or nothing.
std::optional<char32_t> hexQuad(std::string_view text, std::size_t at) {
    if (text.size() - at < 4)
        return std::nullopt;
    char32_t value = 0;
    for (const char c : text.substr(at, 4))
        if (isDigit(c))
            value = value * 16 + static_cast<char32_t>(c - '0');
        else if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))
            value = value * 16 + static_cast<char32_t>((c | 0x20) - 'a' + 10);
        else
            return std::nullopt;
    return value;
}

std::string_view problemOf(simdjson::error_code error) {
    switch (error) {
    case simdjson::EMPTY: return "the text is empty";
    case simdjson::UTF8_ERROR: return "the text is not UTF-8";
    case simdjson::UNESCAPED_CHARS: return "a control character stands unescaped in a string";
    case simdjson::UNCLOSED_STRING: return "a string is not closed";
    case simdjson::CAPACITY: return "the text is too long";
    case simdjson::MEMALLOC: throw std::bad_alloc();
    default: return "the text cannot be split into tokens";
    }
}

} // namespace

// The first of simdjson's two stages: offsets of every bracket, comma, colon and first character of a scalar outside
// strings. The second stage is ours, because theirs leaves unchecked what is not asked for.
class JSONTokens::Index {
public:
    simdjson::error_code build(std::string_view text) {
        if (text.size() > capacity_ || !stage_)
            if (const auto error = grow(std::max({text.size(), 2 * capacity_, firstCapacity})))
                return error;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
        return stage_->stage1(bytes, text.size(), simdjson::stage1_mode::regular);
    }

    const std::uint32_t* offsets() const { return stage_->structural_indexes.get(); }

    std::size_t count() const { return stage_->n_structural_indexes; }

private:
    simdjson::error_code grow(std::size_t wanted) {
        stage_.reset();
        capacity_ = 0;
        constexpr std::size_t unusedDepth = 1; // the depth of the second stage, which does not run
        const auto error =
            simdjson::get_active_implementation()->create_dom_parser_implementation(wanted, unusedDepth, stage_);
        if (!error)
            capacity_ = wanted;
        return error;
    }

    std::unique_ptr<simdjson::internal::dom_parser_implementation> stage_;
    std::size_t capacity_ = 0;
};

JSONTokens::JSONTokens() : index_(std::make_unique<Index>()) {}

JSONTokens::~JSONTokens() = default;

void JSONTokens::begin(std::string_view text) {
    text_ = text;
    next_ = 0;
    depth_ = 0;
    const simdjson::error_code error = text.empty() ? simdjson::EMPTY : index_->build(text);
    if (error)
        throw DecodingError::dataCorrupted("not valid JSON: " + std::string(problemOf(error)));
    offsets_ = index_->offsets();
    count_ = index_->count();
    hasEscapes_ = text.find('\\') != std::string_view::npos;
}

void JSONTokens::fail(std::string_view problem) const {
    const std::size_t offset = next_ < count_ ? offsets_[next_] : text_.size();
    const std::string_view before = text_.substr(0, offset);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0
    std::string text = "not valid JSON at line " + std::to_string(line);
    text.append(", column ").append(std::to_string(offset - lineStart + 1)).append(": ").append(problem);
    throw DecodingError::dataCorrupted(std::move(text));
}

void JSONTokens::expectEnd() const {
    if (next_ != count_)
        fail("expected the end of the text");
}

void JSONTokens::takeNull() {
    if (token() != "null")
        fail("expected a value");
    ++next_;
}

bool JSONTokens::takeBoolean() {
    const std::string_view text = token();
    if (text != "true" && text != "false")
        fail("expected a value");
    ++next_;
    return text == "true";
}

std::string_view JSONTokens::takeNumberText() {
    const std::string_view text = token();
    if (!isNumber(text))
        fail("expected a number");
    ++next_;
    return text;
}

std::optional<double> JSONTokens::takeNumber() {
    const std::string_view text = takeNumberText();
    if (text.size() <= exactDigits && std::all_of(text.begin(), text.end(), isDigit)) {
        std::int64_t value = 0;
        for (const char digit : text)
            value = value * 10 + (digit - '0');
        return static_cast<double>(value);
    }
    const double value = simdjson::internal::from_chars(text.data(), text.data() + text.size());
    if (value - value != 0) // infinite
        return std::nullopt;
    return value;
}

std::string_view JSONTokens::takeEscapedString(std::string_view body) {
    unescaped_.clear();
    for (std::size_t at = 0; at < body.size();) {
        const std::size_t escape = std::min(body.find('\\', at), body.size());
        unescaped_.append(body.substr(at, escape - at));
        if (escape == body.size())
            break;
        at = escape + 2;
        switch (body[escape + 1]) { // a backslash is never the last character: it would have escaped the closing quote
        case '"':
        case '\\':
        case '/': unescaped_.push_back(body[escape + 1]); break;
        case 'b': unescaped_.push_back('\b'); break;
        case 'f': unescaped_.push_back('\f'); break;
        case 'n': unescaped_.push_back('\n'); break;
        case 'r': unescaped_.push_back('\r'); break;
        case 't': unescaped_.push_back('\t'); break;
        case 'u': appendUtf8(unescaped_, takeEscapedCodePoint(body, at)); break;
        default: fail("a string has an escape that JSON does not know");
        }
    }
    ++next_;
    return unescaped_;
}

// `at` stands behind \u; a surrogate must be the first of a pair, and the pair is taken.
char32_t JSONTokens::takeEscapedCodePoint(std::string_view body, std::size_t& at) const {
    const auto unit = hexQuad(body, at);
    if (!unit)
        fail("\\u must be followed by four hexadecimal digits");
    at += 4;
    if (*unit < 0xD800 || *unit > 0xDFFF)
        return *unit;
    const auto low = body.substr(at, 2) == "\\u" ? hexQuad(body, at + 2) : std::nullopt;
    if (*unit > 0xDBFF || !low || *low < 0xDC00 || *low > 0xDFFF)
        fail("a string has half a surrogate pair");
    at += 6;
    return 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
}

} // namespace foundation
