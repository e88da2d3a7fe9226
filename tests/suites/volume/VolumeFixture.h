#pragma once

#include "foundation/PosixErrno.h"
#include "suites/volume/VolumeUnderTest.h"
#include "support/ScriptedHelper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace volumesuite {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testsupport::ScriptedAnswer;
using testsupport::ScriptedHelper;
using testsupport::ScriptedRequest;

namespace posixErrno = foundation::posixErrno;

/// A POSIX error as the volume makes its own: no user info.
inline Error posix(std::int32_t code) {
    return foundation::NSError::posix(code);
}

/// A POSIX error as a helper's failure becomes one.
inline Error posix(std::int32_t code, std::string message) {
    return foundation::NSError::posix(code, std::move(message));
}

/// A fault of the protocol.
inline Error protocolError() {
    return foundation::NSError{"KemviFSExtension.AdapterError", 2, std::nullopt, {}};
}

inline const Error success;

/// A volume over a scripted helper.
class VolumeFixture : public testing::Test {
protected:
    ScriptedHelper helper_;
    std::unique_ptr<VolumeUnderTest> volume_ = makeVolumeUnderTest(helper_.client());

    Item root() { return volume_->activate().item; }

    Item file(const std::string& path, std::int64_t size = 0) {
        return volume_->makeItem(path, false, size, std::nullopt);
    }

    Item directory(const std::string& path) { return volume_->makeItem(path, true, 0, std::nullopt); }
};

/// A volume that was made without a helper.
class ClientlessVolumeFixture : public testing::Test {
protected:
    std::unique_ptr<VolumeUnderTest> volume_ = makeVolumeUnderTest(nullptr);

    Item file(const std::string& path, std::int64_t size = 0) {
        return volume_->makeItem(path, false, size, std::nullopt);
    }

    Item directory(const std::string& path) { return volume_->makeItem(path, true, 0, std::nullopt); }
};

} // namespace volumesuite

namespace foundation {

inline void PrintTo(const NSError& error, std::ostream* out) {
    *out << error.domain << " " << error.code << " " << error.localizedDescription.value_or("(no description)");
}

} // namespace foundation
