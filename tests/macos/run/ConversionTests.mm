// The conversions between the platform's values and the core's, one value at a time.

#import "hosts/macos/ToCore.h"
#import "hosts/macos/ToFSKit.h"
#import "macos/run/AttributeTable.h"

#import <FSKit/FSKitStandin.h>

#include <gtest/gtest.h>

namespace {

using macostests::AttributeRow;
using macostests::attributeRows;
using macoshost::toCore;
using macoshost::toFSKit;

TEST(AttributeConversion, setsExactlyTheValidOneForThePlatform) {
    for (const AttributeRow& row : attributeRows()) {
        fskit::FSItemAttributes core;
        row.setBoth([[FSItemAttributes alloc] init], core, 1);
        FSItemAttributes* platform = toFSKit(core);
        EXPECT_TRUE(row.equal(platform, core)) << row.name;
        for (const AttributeRow& other : attributeRows())
            EXPECT_EQ([platform isValid:static_cast<FSItemAttribute>(1 << other.bit)], other.bit == row.bit)
                << row.name << ", " << other.name;
    }
}

TEST(AttributeConversion, readsExactlyTheValidOneOfARequest) {
    for (const AttributeRow& row : attributeRows()) {
        FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
        fskit::FSItemAttributes unused;
        row.setBoth(request, unused, 1);
        const fskit::FSItemSetAttributesRequest core = toCore(request);
        EXPECT_TRUE(row.equal(request, core)) << row.name;
        EXPECT_EQ(static_cast<int>(core.validAttributes()), 1 << row.bit) << row.name;
    }
}

TEST(AttributeConversion, keepsAllApartWhenAllAreSet) {
    FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
    fskit::FSItemAttributes expected;
    unsigned seed = 2;
    for (const AttributeRow& row : attributeRows())
        row.setBoth(request, expected, seed++);
    const fskit::FSItemSetAttributesRequest core = toCore(request);
    FSItemAttributes* platform = toFSKit(expected);
    for (const AttributeRow& row : attributeRows()) {
        EXPECT_TRUE(row.equal(request, core)) << row.name;
        EXPECT_TRUE(row.equal(platform, expected)) << row.name;
    }
}

TEST(AttributeConversion, carriesWantedAndConsumedBits) {
    FSItemGetAttributesRequest* wanted = [[FSItemGetAttributesRequest alloc] init];
    wanted.wantedAttributes = FSItemAttributeSize | FSItemAttributeModifyTime;
    EXPECT_EQ(static_cast<int>(toCore(wanted).wantedAttributes()), 0x840);
    FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
    request.consumedAttributes = FSItemAttributeUID;
    EXPECT_EQ(static_cast<int>(toCore(request).consumedAttributes()), 0x8);
    EXPECT_EQ(static_cast<int>(toFSKit(fskit::FSItemAttribute::mode)), 0x2);
}

TEST(NameConversion, keepsBytesThatAreNoText) {
    const char bytes[] = {'a', static_cast<char>(0xff), 'b'};
    FSFileName* platform = [FSFileName nameWithBytes:bytes length:sizeof bytes];
    const fskit::FSFileName core = toCore(platform);
    EXPECT_EQ(core.data(), std::string(bytes, sizeof bytes));
    EXPECT_FALSE(core.string());
    EXPECT_TRUE([toFSKit(core).data isEqualToData:platform.data]);
    EXPECT_EQ(toFSKit(core).string, nil);
}

TEST(NameConversion, leavesNormalisationAlone) {
    const std::string decomposed = "e\xcc\x81";
    EXPECT_EQ(toCore(toFSKit(fskit::FSFileName(decomposed))).data(), decomposed);
    EXPECT_EQ(toCore([FSFileName nameWithString:@""]).data(), "");
}

TEST(IdentifierConversion, keepsTheUUID) {
    const foundation::UUID uuid{{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 255}};
    FSVolumeIdentifier* volumeID = toFSKit(fskit::FSVolumeIdentifier(uuid));
    EXPECT_STREQ(volumeID.uuid.UUIDString.UTF8String, uuid.uuidString().c_str());
    EXPECT_EQ(toCore(volumeID).uuid(), uuid);
    FSContainerIdentifier* containerID = toFSKit(fskit::FSContainerIdentifier(uuid));
    EXPECT_STREQ(containerID.uuid.UUIDString.UTF8String, uuid.uuidString().c_str());
}

TEST(ErrorConversion, carriesDomainCodeAndDescriptionOnly) {
    foundation::NSError core = foundation::NSError::posix(2, "no such file");
    core.debugText = "secret";
    NSError* error = toFSKit(core);
    EXPECT_STREQ(error.domain.UTF8String, "NSPOSIXErrorDomain");
    EXPECT_EQ(error.code, 2);
    EXPECT_EQ(error.userInfo.count, 1U);
    EXPECT_STREQ([error.userInfo[NSLocalizedDescriptionKey] UTF8String], "no such file");
}

TEST(ErrorConversion, keepsTheTextForLogsInside) {
    foundation::NSError core = foundation::NSError::posix(5);
    core.debugText = "secret";
    EXPECT_EQ(toFSKit(core).userInfo.count, 0U);
}

TEST(ErrorConversion, ofNoErrorIsNil) {
    EXPECT_EQ(toFSKit(std::optional<foundation::NSError>()), nil);
}

TEST(ResourceConversion, ofAPathKeepsPathAndWritability) {
    NSURL* url = [NSURL fileURLWithPath:@"/some folder/ä"];
    const auto resource =
        std::dynamic_pointer_cast<fskit::FSPathURLResource>(toCore([[FSPathURLResource alloc] initWithURL:url
                                                                                                 writable:YES]));
    ASSERT_TRUE(resource);
    EXPECT_EQ(resource->url().path(), "/some folder/ä");
    EXPECT_TRUE(resource->isWritable());
    EXPECT_FALSE(std::dynamic_pointer_cast<fskit::FSPathURLResource>(toCore([[FSPathURLResource alloc] initWithURL:url
                                                                                                          writable:NO]))
                     ->isWritable());
}

TEST(ResourceConversion, ofAnythingElseIsNoPath) {
    const auto device = toCore([FSBlockDeviceResource resourceWithBSDName:@"disk4"]);
    EXPECT_EQ(dynamic_cast<fskit::FSPathURLResource*>(device.get()), nullptr);
    EXPECT_NE(device->description().find("FSBlockDeviceResource"), std::string::npos);
}

TEST(OptionConversion, keepsTheOrderOfArguments) {
    const std::vector<std::string> expected = {"-o", "ro", "--x"};
    EXPECT_EQ(toCore([FSTaskOptions optionsWithArguments:@[ @"-o", @"ro", @"--x" ]]).taskOptions(), expected);
}

TEST(ProbeConversion, carriesEveryKindOfResult) {
    const foundation::UUID uuid = foundation::UUID::random();
    FSProbeResult* usable = toFSKit(fskit::FSProbeResult::usable("Kemvi", fskit::FSContainerIdentifier(uuid)));
    EXPECT_EQ(usable.result, FSMatchResultUsable);
    EXPECT_STREQ(usable.name.UTF8String, "Kemvi");
    EXPECT_STREQ(usable.containerID.uuid.UUIDString.UTF8String, uuid.uuidString().c_str());
    EXPECT_EQ(toFSKit(fskit::FSProbeResult()).result, FSMatchResultNotRecognized);
}

TEST(CapabilityConversion, switchesOnExactlyWhatTheVolumeClaims) {
    using Core = fskit::FSVolumeSupportedCapabilities;
    const std::pair<bool Core::*, const char*> members[] = {
        {&Core::supportsPersistentObjectIDs, "supportsPersistentObjectIDs"},
        {&Core::supportsSymbolicLinks, "supportsSymbolicLinks"},
        {&Core::supportsHardLinks, "supportsHardLinks"},
        {&Core::supportsJournal, "supportsJournal"},
        {&Core::supportsActiveJournal, "supportsActiveJournal"},
        {&Core::doesNotSupportRootTimes, "doesNotSupportRootTimes"},
        {&Core::supportsSparseFiles, "supportsSparseFiles"},
        {&Core::supportsZeroRuns, "supportsZeroRuns"},
        {&Core::supportsFastStatFS, "supportsFastStatFS"},
        {&Core::supports2TBFiles, "supports2TBFiles"},
        {&Core::supportsOpenDenyModes, "supportsOpenDenyModes"},
        {&Core::supportsHiddenFiles, "supportsHiddenFiles"},
        {&Core::doesNotSupportVolumeSizes, "doesNotSupportVolumeSizes"},
        {&Core::supports64BitObjectIDs, "supports64BitObjectIDs"},
        {&Core::supportsDocumentID, "supportsDocumentID"},
        {&Core::doesNotSupportImmutableFiles, "doesNotSupportImmutableFiles"},
        {&Core::doesNotSupportSettingFilePermissions, "doesNotSupportSettingFilePermissions"},
        {&Core::supportsSharedSpace, "supportsSharedSpace"},
        {&Core::supportsVolumeGroups, "supportsVolumeGroups"},
    };
    for (const auto& [member, name] : members) {
        Core core;
        core.*member = true;
        FSVolumeSupportedCapabilities* platform = toFSKit(core);
        for (const auto& [other, otherName] : members)
            EXPECT_EQ([[platform valueForKey:@(otherName)] boolValue], other == member) << name << ", " << otherName;
    }
}

} // namespace
