#include "foundation/JSONTokens.h"

#include <algorithm>
#include <simdjson.h>

namespace foundation {
namespace {

constexpr int mostLevels = 512;
constexpr std::size_t firstCapacity = std::size_t{64} * 1024;
constexpr std::size_t exactDigits = 15; // integers of so many digits are exact in a double

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

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
    for (const char c : text.substr(at, 4)) {
        if (isDigit(c))
            value = value * 16 + static_cast<char32_t>(c - '0');
        else if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))
            value = value * 16 + static_cast<char32_t>((c | 0x20) - 'a' + 10);
        else
            return std::nullopt;
    }
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
struct JSONReader::Tokens::Index {
    std::unique_ptr<simdjson::internal::dom_parser_implementation> stage;
    std::size_t capacity = 0;
    std::size_t count = 0;

    simdjson::error_code build(std::string_view text) {
        count = 0;
        if (text.size() > capacity || !stage)
            if (const auto error = grow(std::max({text.size(), 2 * capacity, firstCapacity})))
                return error;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
        const auto error = stage->stage1(bytes, text.size(), simdjson::stage1_mode::regular);
        if (!error)
            count = stage->n_structural_indexes;
        return error;
    }

    std::size_t offset(std::size_t token) const { return stage->structural_indexes[token]; }

private:
    simdjson::error_code grow(std::size_t wanted) {
        stage.reset();
        capacity = 0;
        constexpr std::size_t unusedDepth = 1; // the depth of the second stage, which does not run
        const auto error =
            simdjson::get_active_implementation()->create_dom_parser_implementation(wanted, unusedDepth, stage);
        if (!error)
            capacity = wanted;
        return error;
    }
};

JSONReader::Tokens::Tokens() : index_(std::make_unique<Index>()) {}

JSONReader::Tokens::~Tokens() = default;

void JSONReader::Tokens::begin(std::string_view text) {
    text_ = text;
    next_ = 0;
    depth_ = 0;
    const simdjson::error_code error = text.empty() ? simdjson::EMPTY : index_->build(text);
    if (error)
        throw DecodingError::dataCorrupted("not valid JSON: " + std::string(problemOf(error)));
}

void JSONReader::Tokens::fail(std::string_view problem) const {
    const std::size_t offset = next_ < index_->count ? index_->offset(next_) : text_.size();
    const std::string_view before = text_.substr(0, offset);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') + 1; // npos + 1 is 0
    std::string text = "not valid JSON at line " + std::to_string(line);
    text.append(", column ").append(std::to_string(offset - lineStart + 1)).append(": ").append(problem);
    throw DecodingError::dataCorrupted(std::move(text));
}

char JSONReader::Tokens::peek() const {
    return next_ < index_->count ? text_[index_->offset(next_)] : '\0';
}

// The token at which we stand, without the white space up to the next one.
std::string_view JSONReader::Tokens::token() const {
    const std::size_t start = index_->offset(next_);
    std::size_t end = next_ + 1 < index_->count ? index_->offset(next_ + 1) : text_.size();
    while (isSpace(text_[end - 1]))
        --end;
    return text_.substr(start, end - start);
}

void JSONReader::Tokens::expectEnd() {
    if (next_ != index_->count)
        fail("expected the end of the text");
}

JSONType JSONReader::Tokens::nextType() {
    switch (const char c = peek()) {
    case '{': return JSONType::object;
    case '[': return JSONType::array;
    case '"': return JSONType::string;
    case 't':
    case 'f': return JSONType::boolean;
    case 'n': return JSONType::null;
    default:
        if (c != '-' && !isDigit(c))
            fail("expected a value");
        return JSONType::number;
    }
}

void JSONReader::Tokens::takeNull() {
    if (token() != "null")
        fail("expected a value");
    ++next_;
}

bool JSONReader::Tokens::takeBoolean() {
    const std::string_view text = token();
    if (text != "true" && text != "false")
        fail("expected a value");
    ++next_;
    return text == "true";
}

std::string_view JSONReader::Tokens::takeNumberText() {
    const std::string_view text = token();
    if (!isNumber(text))
        fail("expected a number");
    ++next_;
    return text;
}

std::optional<double> JSONReader::Tokens::takeNumber() {
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

std::string_view JSONReader::Tokens::takeString() {
    const std::string_view text = token();
    const std::string_view body = text.substr(1, text.size() - 2);
    const bool escaped = body.find('\\') != std::string_view::npos;
    if (escaped)
        unescape(body);
    ++next_;
    return escaped ? std::string_view(unescaped_) : body;
}

void JSONReader::Tokens::unescape(std::string_view body) {
    unescaped_.clear();
    for (std::size_t at = 0; at < body.size();) {
        const std::size_t escape = std::min(body.find('\\', at), body.size());
        unescaped_.append(body.substr(at, escape - at));
        if (escape == body.size())
            return;
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
}

// `at` stands behind \u; a surrogate must be the first of a pair, and the pair is taken.
char32_t JSONReader::Tokens::takeEscapedCodePoint(std::string_view body, std::size_t& at) const {
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

void JSONReader::Tokens::enter(char opening) {
    if (peek() != opening)
        fail("expected an array or an object");
    if (++depth_ > mostLevels)
        fail("arrays and objects are nested more than 512 levels deep");
    ++next_;
}

bool JSONReader::Tokens::leaveIfEmpty(char closing) {
    if (peek() != closing)
        return false;
    ++next_;
    --depth_;
    return true;
}

bool JSONReader::Tokens::nextItem(char closing) {
    const char c = peek();
    if (c != ',' && c != closing)
        fail(closing == ']' ? "expected a comma or the end of the array" : "expected a comma or the end of the object");
    ++next_;
    if (c == closing)
        --depth_;
    return c == ',';
}

std::string_view JSONReader::Tokens::takeKey() {
    if (peek() != '"')
        fail("expected a key in quotes");
    const std::string_view key = takeString();
    if (peek() != ':')
        fail("expected a colon behind the key");
    ++next_;
    return key;
}

} // namespace foundation
