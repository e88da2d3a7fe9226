#include "foundation/Error.h"
#include "foundation/PosixErrno.h"
#include "foundation/URL.h"
#include "foundation/UUID.h"
#include "foundation/Utf8.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <set>
#include <stdexcept>

namespace {

using foundation::NSError;
namespace posixErrno = foundation::posixErrno;

template <typename Exception>
NSError valueOf(const Exception& exception) {
    try {
        throw exception;
    } catch (...) {
        return foundation::currentError();
    }
}

class Named final : public foundation::Error {
public:
    NSError nsError() const override { return {"domain", 3, std::nullopt, {}}; }

    std::string description() const override { return "what happened"; }
};

TEST(Error, becomesItsValueWithTheDescriptionForLogsOnly) {
    const NSError value = valueOf(Named());
    EXPECT_EQ(value, (NSError{"domain", 3, std::nullopt, {}}));
    EXPECT_EQ(value.debugText, "what happened");
    EXPECT_FALSE(value.localizedDescription);
}

TEST(Error, showsItsDescriptionAsTheExceptionsText) {
    EXPECT_STREQ(Named().what(), "what happened");
}

TEST(Error, ofMemoryIsENOMEMAndOfTheLibraryEIO) {
    EXPECT_EQ(valueOf(std::bad_alloc()), NSError::posix(posixErrno::ENOMEM_));
    const NSError value = valueOf(std::runtime_error("odd"));
    EXPECT_EQ(value, NSError::posix(posixErrno::EIO_));
    EXPECT_EQ(value.debugText, "odd");
    EXPECT_EQ(valueOf(7), NSError::posix(posixErrno::EIO_));
}

TEST(Error, thrownAsPosixCarriesTheNumberAndNoText) {
    try {
        foundation::throwPosix(posixErrno::ENOTEMPTY_);
    } catch (const foundation::NSErrorException& error) {
        EXPECT_EQ(error.nsError(), (NSError{"NSPOSIXErrorDomain", 66, std::nullopt, {}}));
    }
}

TEST(NSError, describesItselfByItsTextsOrByDomainAndCode) {
    EXPECT_EQ(NSError::posix(2).description(), "NSPOSIXErrorDomain error 2");
    EXPECT_EQ(NSError::posix(2, "gone").description(), "gone");
    EXPECT_EQ(NSError::posix(2, "").description(), "NSPOSIXErrorDomain error 2");
    NSError value = NSError::posix(2, "gone");
    value.debugText = "for the log";
    EXPECT_EQ(value.description(), "for the log");
}

TEST(NSError, comparesWithoutTheTextForLogs) {
    NSError value = NSError::posix(2);
    value.debugText = "for the log";
    EXPECT_EQ(value, NSError::posix(2));
    EXPECT_FALSE(NSError::posix(2) == NSError::posix(2, ""));
    EXPECT_FALSE(NSError::posix(2) == NSError::posix(3));
}

TEST(PosixErrno, hasTheNumbersOfMacOS) {
    EXPECT_EQ(posixErrno::ENOENT_, 2);
    EXPECT_EQ(posixErrno::EAGAIN_, 35);
    EXPECT_EQ(posixErrno::ENOTSUP_, 45);
    EXPECT_EQ(posixErrno::ENAMETOOLONG_, 63);
    EXPECT_EQ(posixErrno::ENOTEMPTY_, 66);
    EXPECT_EQ(posixErrno::ESTALE_, 70);
    EXPECT_EQ(posixErrno::ENOSYS_, 78);
}

TEST(PosixErrno, translatesBothWays) {
    for (const int number :
         {EPERM,  ENOENT,       EINTR,     EIO,    ENXIO,  EBADF,  ENOMEM,    EACCES,  EBUSY, EEXIST,
          EXDEV,  ENOTDIR,      EISDIR,    EINVAL, ENFILE, EMFILE, EFBIG,     ENOSPC,  EROFS, EPIPE,
          EAGAIN, ENAMETOOLONG, ENOTEMPTY, EDQUOT, ESTALE, ENOSYS, EOVERFLOW, ENOTSUP, ELOOP, ETIMEDOUT})
        EXPECT_EQ(foundation::platformErrno(foundation::darwinErrno(number)), number);
    EXPECT_EQ(foundation::darwinErrno(ENOTEMPTY), 66);
    EXPECT_EQ(foundation::darwinErrno(ENOSYS), 78);
    EXPECT_EQ(foundation::darwinErrno(ENOTSUP), 45);
    EXPECT_EQ(foundation::platformErrno(posixErrno::EOPNOTSUPP_), EOPNOTSUPP);
}

TEST(PosixErrno, takesAnUnknownNumberForEIO) {
    EXPECT_EQ(foundation::darwinErrno(123456), posixErrno::EIO_);
    EXPECT_EQ(foundation::platformErrno(123456), EIO);
    EXPECT_EQ(foundation::platformErrno(0), EIO);
}

TEST(Utf8, acceptsEveryLengthOfSequence) {
    EXPECT_TRUE(foundation::isValidUtf8(""));
    EXPECT_TRUE(foundation::isValidUtf8("plain"));
    EXPECT_TRUE(
        foundation::isValidUtf8("\xC2\x80 \xDF\xBF \xE0\xA0\x80 \xEF\xBF\xBF \xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"));
    EXPECT_TRUE(foundation::isValidUtf8(std::string_view("a\0b", 3)));
}

TEST(Utf8, refusesOverlongFormsSurrogatesAndValuesBeyondUnicode) {
    for (const char* text : {"\x80", "\xBF", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF",
                             "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFE", "\xFF"})
        EXPECT_FALSE(foundation::isValidUtf8(text)) << testing::PrintToString(text);
}

TEST(Utf8, refusesSequencesThatAreCutOff) {
    for (const char* text : {"\xC3", "\xE2\x82", "\xF0\x9F\x98", "a\xC3",
                             "\xC3"
                             "a",
                             "\xE2\x82"
                             "a",
                             "\xE2"
                             "ab"})
        EXPECT_FALSE(foundation::isValidUtf8(text)) << testing::PrintToString(text);
}

TEST(UUID, isRandomOfVersionFourInUpperCase) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        const std::string text = foundation::UUID::random().uuidString();
        EXPECT_THAT(text, testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 100U);
}

TEST(URL, isAPathThatNeedsNoAccessByDefault) {
    foundation::URL url("/a b");
    EXPECT_EQ(url.path(), "/a b");
    EXPECT_FALSE(url.startAccessingSecurityScopedResource());
    url.stopAccessingSecurityScopedResource();
}

} // namespace
