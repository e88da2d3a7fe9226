// What the bundles declare: each key in the dictionary where the system looks for it, and in agreement with the code.

#import "hosts/macos/KemviVolume.h"

#import <FSKit/FSKitStandin.h>

#include "foundation/Log.h"

#include <gtest/gtest.h>

namespace {

NSDictionary* propertyList(NSString* name) {
    NSString* path = [@KEMVI_DECLARATIONS stringByAppendingPathComponent:name];
    NSDictionary* list = [NSDictionary dictionaryWithContentsOfFile:path];
    EXPECT_NE(list, nil) << path.UTF8String << " is not a property list";
    return list;
}

NSDictionary* extensionInfo() {
    return propertyList(@"Extension-Info.plist");
}

NSDictionary* attributes() {
    return extensionInfo()[@"EXAppExtensionAttributes"];
}

std::string text(id value) {
    return [value isKindOfClass:[NSString class]] ? [value UTF8String] : "(not a string)";
}

// 1, 0, or -1 for a value that is no boolean.
int truth(id value) {
    if (![value isKindOfClass:[NSNumber class]])
        return -1;
    return [value boolValue] ? 1 : 0;
}

bool isEmptyDictionary(id value) {
    return [value isKindOfClass:[NSDictionary class]] && [value count] == 0;
}

TEST(Declaration, theExtensionIsAnExtensionBundle) {
    EXPECT_EQ(text(extensionInfo()[@"CFBundlePackageType"]), "XPC!");
    EXPECT_EQ(text(extensionInfo()[@"CFBundleExecutable"]), "KemviFSExtension");
    EXPECT_EQ(text(attributes()[@"EXExtensionPointIdentifier"]), "com.apple.fskit.fsmodule");
}

TEST(Declaration, nothingOfTheExtensionPointIsAtTheTopLevel) {
    for (NSString* key in extensionInfo())
        EXPECT_FALSE([key hasPrefix:@"FS"] || ([key hasPrefix:@"EX"] && ![key isEqual:@"EXAppExtensionAttributes"]))
            << key.UTF8String;
}

TEST(Declaration, thePrincipalClassIsAUnaryFileSystem) {
    Class principal = NSClassFromString(attributes()[@"EXExtensionPrincipalClass"]);
    EXPECT_TRUE([principal isSubclassOfClass:[FSUnaryFileSystem class]]);
    EXPECT_TRUE([principal conformsToProtocol:@protocol(FSUnaryFileSystemOperations)]);
}

TEST(Declaration, theShortNameIsTheTypeNameOfTheStatistics) {
    KemviVolume* volume = [[KemviVolume alloc] initWithVolumeID:[[FSVolumeIdentifier alloc] init]
                                                     volumeName:[FSFileName nameWithString:@"Kemvi"]];
    EXPECT_EQ(text(attributes()[@"FSShortName"]), "kemvifs");
    EXPECT_EQ(text(volume.volumeStatistics.fileSystemTypeName), text(attributes()[@"FSShortName"]));
    EXPECT_LT(text(attributes()[@"FSShortName"]).size(), 16U); // what fits a mount table
}

TEST(Declaration, pathsAreTheOnlyResources) {
    EXPECT_EQ(truth(attributes()[@"FSSupportsPathURLs"]), 1);
    EXPECT_EQ(truth(attributes()[@"FSSupportsBlockResources"]), 0);
    EXPECT_EQ(truth(attributes()[@"FSSupportsGenericURLResources"]), 0);
    EXPECT_EQ(truth(attributes()[@"FSSupportsServerURLs"]), 0);
    EXPECT_EQ(truth(attributes()[@"FSRequiresSecurityScopedPathURLResources"]), 1);
    EXPECT_TRUE(isEmptyDictionary(attributes()[@"FSMediaTypes"]));
}

TEST(Declaration, mountTakesOptions) {
    // mount(8) turns every option into -o, and refuses a module without this dictionary.
    NSDictionary* syntax = attributes()[@"FSActivateOptionSyntax"];
    EXPECT_EQ(text(syntax[@"shortOptions"]), "o:");
    EXPECT_TRUE(isEmptyDictionary(syntax[@"pathOptions"]));
}

TEST(Declaration, theOnePersonalityAgreesWithTheVolume) {
    KemviVolume* volume = [[KemviVolume alloc] initWithVolumeID:[[FSVolumeIdentifier alloc] init]
                                                     volumeName:[FSFileName nameWithString:@"Kemvi"]];
    NSDictionary* personalities = attributes()[@"FSPersonalities"];
    ASSERT_EQ(personalities.count, 1U);
    NSDictionary* personality = personalities.allValues[0];
    EXPECT_EQ(text(personality[@"FSName"]), "Kemvi");
    EXPECT_EQ([personality[@"FSSubType"] integerValue], volume.volumeStatistics.fileSystemSubType);
    EXPECT_EQ(truth(personality[@"FSfileObjectsAreCaseSensitive"]) == 1,
              volume.supportedVolumeCapabilities.caseFormat == FSVolumeCaseFormatSensitive);
}

TEST(Declaration, theExtensionsIdentifierIsTheLogsSubsystemAndExtendsTheApplications) {
    const std::string extension = text(extensionInfo()[@"CFBundleIdentifier"]);
    const std::string application = text(propertyList(@"App-Info.plist")[@"CFBundleIdentifier"]);
    EXPECT_EQ(extension, foundation::bundleIdentifier);
    EXPECT_TRUE(extension.starts_with(application + "."));
}

TEST(Declaration, theApplicationIsAnApplicationForTheSameSystem) {
    NSDictionary* application = propertyList(@"App-Info.plist");
    EXPECT_EQ(text(application[@"CFBundlePackageType"]), "APPL");
    EXPECT_EQ(text(application[@"LSMinimumSystemVersion"]), text(extensionInfo()[@"LSMinimumSystemVersion"]));
    EXPECT_EQ(text(application[@"CFBundleVersion"]), text(extensionInfo()[@"CFBundleVersion"]));
    EXPECT_EQ(application[@"EXAppExtensionAttributes"], nil);
}

TEST(Declaration, theEntitlementsAreTheModulesAndTheSandboxBothTrue) {
    NSDictionary* entitlements = propertyList(@"KemviFSExtension.entitlements");
    EXPECT_EQ(entitlements.count, 2U);
    EXPECT_EQ(truth(entitlements[@"com.apple.developer.fskit.fsmodule"]), 1);
    EXPECT_EQ(truth(entitlements[@"com.apple.security.app-sandbox"]), 1);
}

} // namespace
