#include "cli/store/StoreAddress.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace cli {

namespace {

constexpr std::string_view embedded = "pglite:";
constexpr std::string_view expectedStore =
    "expected pglite:DIR, or postgres://[USER@]HOST[:PORT][,HOST[:PORT]...]/DATABASE, or for a server behind a socket "
    "postgres:///DATABASE?host=/DIR&user=USER";
constexpr std::string_view expectedContents = "expected database, or s3://BUCKET or s3://BUCKET/PREFIX";

[[noreturn]] void refuse(const std::string& option, std::string_view problem) {
    throw CommandError(ExitCode::usage, option, problem);
}

bool isLetterOrDigit(char each) {
    return static_cast<unsigned char>(each) < 0x80 && std::isalnum(static_cast<unsigned char>(each)) != 0;
}

bool isBlankOrControl(char each) {
    return static_cast<unsigned char>(each) <= ' ' || each == 0x7f;
}

bool isPort(std::string_view port) {
    return !port.empty() && port.size() <= 5 &&
           std::all_of(port.begin(), port.end(), [](char each) { return each >= '0' && each <= '9'; }) &&
           std::stoi(std::string(port)) >= 1 && std::stoi(std::string(port)) <= 65535;
}

/// HOST or HOST:PORT, where HOST may be an address in brackets.
void checkHost(std::string_view text) {
    const std::string_view whole = text;
    const auto wrong = [&](const std::string& problem) {
        refuse("--store", "\"" + std::string(whole) + "\" " + problem);
    };
    std::size_t end = text.find(':');
    if (text.starts_with('[')) {
        end = text.find(']');
        if (end == std::string_view::npos)
            wrong("lacks a \"]\"; an address with colons stands in brackets");
        ++end;
    }
    const std::string_view host = text.substr(0, end);
    const bool isName = std::all_of(host.begin(), host.end(), [](char each) {
        return isLetterOrDigit(each) || std::string_view("-._:[]").find(each) != std::string_view::npos;
    });
    if (host.empty() || host == "[]" || !isName)
        wrong("is no host; expected HOST or HOST:PORT");
    if (end < text.size() && (text[end] != ':' || !isPort(text.substr(end + 1))))
        wrong("has no port behind the host; expected a number from 1 to 65535");
}

void checkHosts(std::string_view hosts) {
    for (;;) {
        const std::size_t comma = hosts.find(',');
        checkHost(hosts.substr(0, comma));
        if (comma == std::string_view::npos)
            return;
        hosts.remove_prefix(comma + 1);
    }
}

[[noreturn]] void refusePassword(const std::string& source) {
    refuse("--store", "the URL holds a password, and everybody may read the configuration; leave it out, and put it "
                      "into ~/.pgpass, or as a line PGPASSWORD=... into " +
                          source + "/mount-secrets.env with mode 0600");
}

/// Whether one of the options behind "?" is called so.
bool hasOption(std::string_view query, std::string_view name) {
    while (!query.empty()) {
        const std::string_view option = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), option.size() + 1));
        if (option.substr(0, option.find('=')) == name)
            return true;
    }
    return false;
}

/// `rest` is what follows "postgres://".
void checkServer(std::string_view rest, const std::string& source) {
    const std::size_t behind = rest.find_first_of("/?");
    std::string_view hosts = rest.substr(0, behind);
    std::string_view path = behind == std::string_view::npos ? std::string_view() : rest.substr(behind);
    const std::size_t question = path.find('?');
    const std::string_view query = question == std::string_view::npos ? std::string_view() : path.substr(question + 1);
    path = path.substr(0, question);
    if (const std::size_t at = rest.rfind('@'); at != std::string_view::npos) {
        // A password may hold what would end it elsewhere; whatever it is, it is not to be shown.
        if (at > hosts.size() || hosts.substr(0, at).find(':') != std::string_view::npos)
            refusePassword(source);
        hosts.remove_prefix(at + 1);
    }
    if (hasOption(query, "password"))
        refusePassword(source);
    if (!hosts.empty())
        checkHosts(hosts);
    else if (!hasOption(query, "host"))
        refuse("--store", "the URL names no host; " + std::string(expectedStore));
    if (path.size() < 2 || path.find('/', 1) != std::string_view::npos)
        refuse("--store", "the URL names no database; " + std::string(expectedStore));
}

std::string checkedStore(const std::string& store, const std::string& source) {
    if (store.starts_with(embedded)) {
        if (store.size() == embedded.size())
            refuse("--store " + store, "names no directory; expected pglite:DIR");
        return std::string(embedded) + embeddedFolder(store);
    }
    for (const std::string_view scheme : {"postgres://", "postgresql://"}) {
        if (!store.starts_with(scheme))
            continue;
        if (std::any_of(store.begin(), store.end(), isBlankOrControl))
            refuse("--store", "the URL holds a blank or a control character; write it as %20 and the like");
        checkServer(std::string_view(store).substr(scheme.size()), source);
        return "postgres://" + store.substr(scheme.size());
    }
    // What is before the colon tells nothing that is secret.
    const std::size_t colon = store.find(':');
    refuse(colon == std::string::npos ? "--store " + store : "--store " + store.substr(0, colon) + ":...",
           "is no store; " + std::string(expectedStore));
}

bool isBucket(std::string_view name) {
    return name.size() >= 3 && name.size() <= 63 && name.front() != '.' && name.front() != '-' && name.back() != '.' &&
           name.back() != '-' && name.find("..") == std::string_view::npos &&
           std::all_of(name.begin(), name.end(), [](char each) {
               return (isLetterOrDigit(each) && (each < 'A' || each > 'Z')) || each == '-' || each == '.';
           });
}

constexpr std::size_t maximumPrefix = 501; // with the slash in front

std::string checkedContents(const std::string& contents) {
    constexpr std::string_view scheme = "s3://";
    if (contents == "database")
        return contents;
    if (!contents.starts_with(scheme))
        refuse("--contents " + contents, expectedContents);
    std::string_view rest = std::string_view(contents).substr(scheme.size());
    if (rest.find('@') != std::string_view::npos)
        refuse("--contents", "s3://... holds no keys; they come from where the AWS tools have them, or from "
                             "AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY in mount-secrets.env");
    while (rest.ends_with('/'))
        rest.remove_suffix(1);
    const std::string_view bucket = rest.substr(0, rest.find('/'));
    if (!isBucket(bucket))
        refuse("--contents " + contents, "\"" + std::string(bucket) +
                                             "\" is no name of a bucket; expected 3 to 63 small letters, digits, "
                                             "hyphens and dots, with a letter or a digit at both ends");
    const bool isPlain = std::none_of(rest.begin(), rest.end(),
                                      [](char each) { return isBlankOrControl(each) || each == '?' || each == '#'; });
    if (!isPlain || rest.find("//") != std::string_view::npos || rest.size() - bucket.size() > maximumPrefix)
        refuse("--contents " + contents, "the prefix has an empty part, a blank, \"?\" or \"#\" in it, or more than "
                                         "500 bytes; expected such as a/b");
    return std::string(scheme) + std::string(rest);
}

std::string checkedTree(const std::string& tree) {
    const bool isOneLine = std::none_of(
        tree.begin(), tree.end(), [](char each) { return static_cast<unsigned char>(each) < ' ' || each == 0x7f; });
    const auto characters = // all bytes but those that go on with one in UTF-8
        std::count_if(tree.begin(), tree.end(), [](char each) { return (each & 0xc0) != 0x80; });
    if (!isOneLine || characters > 100)
        refuse("--tree " + tree, "is no name of a tree; expected at most 100 characters in one line");
    return tree;
}

} // namespace

std::string embeddedFolder(const std::string& store) {
    return store.starts_with(embedded) ? absolutePath(store.substr(embedded.size())) : std::string();
}

HelperSettings storeSettings(const StoreRequest& request, const std::string& source) {
    HelperSettings settings{{"KEMVI_STORE", checkedStore(request.store, source)}};
    if (!request.contents.empty())
        settings.emplace_back("KEMVI_STORE_CONTENTS", checkedContents(request.contents));
    if (!request.tree.empty())
        settings.emplace_back("KEMVI_STORE_TREE", checkedTree(request.tree));
    return settings;
}

} // namespace cli
