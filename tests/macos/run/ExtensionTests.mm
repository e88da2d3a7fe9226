// The extension from end to end, called as FSKit calls it: the class that the bundle names, a source directory, a real
// helper in node.

#import "hosts/macos/KemviItem.h"

#import <FSKit/FSKitStandin.h>
#import <Foundation/NSDebug.h>
#import <GNUstepBase/GNUstep.h>

#include "foundation/Descriptor.h"
#include "support/RecordingLog.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using FileSystem = FSUnaryFileSystem<FSUnaryFileSystemOperations>;
using Volume =
    FSVolume<FSVolumeOperations, FSVolumePathConfOperations, FSVolumeOpenCloseOperations, FSVolumeReadWriteOperations>;

// Waits for a reply block that may be called later and on another thread.
class Waiter {
public:
    void replied() {
        const std::lock_guard guard(lock_);
        ++replies_;
        changed_.notify_all();
    }

    // False if the reply did not come in time.
    bool wait() {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, std::chrono::seconds(30), [&] { return replies_ > 0; });
    }

    int replies() {
        const std::lock_guard guard(lock_);
        return replies_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int replies_ = 0;
};

// A folder of this test's own with a source directory and a tree to serve.
class Folders {
public:
    Folders() {
        std::string pattern = std::filesystem::temp_directory_path() / "kemvi-macos-XXXXXX";
        base_ = ::mkdtemp(pattern.data());
        std::filesystem::create_directories(source());
        std::filesystem::create_directories(tree());
    }

    ~Folders() { std::filesystem::remove_all(base_); }

    Folders(const Folders&) = delete;
    Folders& operator=(const Folders&) = delete;

    std::filesystem::path source() const { return base_ / "source"; }

    std::filesystem::path tree() const { return base_ / "tree"; }

    void configure(const std::string& helperPath) const {
        std::ofstream(source() / "mount-config.json")
            << R"({"driveId":"d","kemviHome":"/","repoRoot":")" << tree().string() << R"(","helperPath":")"
            << helperPath << "\"}";
    }

    // Configures a helper that is this script.
    void configureScript(const std::string& script) const {
        std::ofstream(base_ / "helper.mjs") << script;
        configure((base_ / "helper.mjs").string());
    }

private:
    std::filesystem::path base_;
};

struct Loaded {
    Volume* volume = nil;
    NSError* error = nil;
};

NSDictionary* extensionAttributes() {
    NSString* path = [@KEMVI_DECLARATIONS stringByAppendingPathComponent:@"Extension-Info.plist"];
    return [NSDictionary dictionaryWithContentsOfFile:path][@"EXAppExtensionAttributes"];
}

FileSystem* newFileSystem() {
    return [[NSClassFromString(extensionAttributes()[@"EXExtensionPrincipalClass"]) alloc] init];
}

FSTaskOptions* noOptions() {
    return [FSTaskOptions optionsWithArguments:@[]];
}

FSPathURLResource* resource(const std::filesystem::path& path) {
    return [[FSPathURLResource alloc] initWithURL:[NSURL fileURLWithPath:@(path.c_str())] writable:YES];
}

Loaded load(FileSystem* fileSystem, FSResource* from) {
    Loaded loaded;
    Loaded* into = &loaded;
    int replies = 0;
    int* count = &replies;
    [fileSystem loadResource:from
                     options:noOptions()
                replyHandler:^(FSVolume* volume, NSError* error) {
                  ++*count;
                  into->volume = static_cast<Volume*>(volume);
                  into->error = error;
                  if (volume) // before the answer, or the platform gives up the load
                      EXPECT_EQ(fileSystem.containerStatus.state, FSContainerStateReady);
                }];
    EXPECT_EQ(replies, 1);
    return loaded;
}

FSItem* activate(Volume* volume) {
    FSItem* __strong root = nil;
    FSItem* __strong* into = &root;
    [volume activateWithOptions:noOptions()
                   replyHandler:^(FSItem* item, NSError* error) {
                     EXPECT_EQ(error, nil);
                     *into = item;
                   }];
    return root;
}

FSItem* lookup(Volume* volume, const char* name, FSItem* directory) {
    FSItem* __strong found = nil;
    FSItem* __strong* into = &found;
    [volume lookupItemNamed:[FSFileName nameWithString:@(name)]
                inDirectory:directory
               replyHandler:^(FSItem* item, FSFileName* stored, NSError* error) {
                 EXPECT_EQ(error, nil) << error.description.UTF8String;
                 EXPECT_STREQ(stored.string.UTF8String, name);
                 *into = item;
               }];
    return found;
}

FSItem* create(Volume* volume, const char* name, FSItemType type, FSItem* directory) {
    FSItem* __strong made = nil;
    FSItem* __strong* into = &made;
    [volume createItemNamed:[FSFileName nameWithString:@(name)]
                       type:type
                inDirectory:directory
                 attributes:[[FSItemSetAttributesRequest alloc] init]
               replyHandler:^(FSItem* item, FSFileName*, NSError* error) {
                 EXPECT_EQ(error, nil) << error.description.UTF8String;
                 *into = item;
               }];
    return made;
}

std::string readAll(Volume* volume, FSItem* item) {
    FSMutableFileDataBuffer* buffer = [FSMutableFileDataBuffer bufferWithLength:4096];
    std::size_t count = 0;
    std::size_t* into = &count;
    [volume readFromFile:item
                  offset:0
                  length:4096
              intoBuffer:buffer
            replyHandler:^(size_t actuallyRead, NSError* error) {
              EXPECT_EQ(error, nil) << error.description.UTF8String;
              *into = actuallyRead;
            }];
    return std::string(static_cast<const char*>(buffer.mutableBytes), count);
}

// What an operation with no result but an error answered.
NSError* outcome(void (^operation)(void (^reply)(NSError*))) {
    NSError* __strong result = nil;
    NSError* __strong* into = &result;
    int replies = 0;
    int* count = &replies;
    operation(^(NSError* error) {
      ++*count;
      *into = error;
    });
    EXPECT_EQ(replies, 1);
    return result;
}

void shutDown(Volume* volume) {
    EXPECT_EQ(outcome(^(void (^reply)(NSError*)) {
                [volume deactivateWithOptions:0 replyHandler:reply];
              }),
              nil);
    Waiter unmounted;
    Waiter* waiter = &unmounted;
    [volume unmountWithReplyHandler:^{
      waiter->replied();
    }];
    EXPECT_EQ(unmounted.replies(), 1);
}

class Extension : public testing::Test {
protected:
    Folders folders_;
    testsupport::RecordingLog log_;
    FileSystem* fileSystem_ = newFileSystem();

    // Over the helper that serves a folder.
    Volume* loadLocal() {
        folders_.configure(KEMVI_LOCAL_HELPER);
        const Loaded loaded = load(fileSystem_, resource(folders_.source()));
        EXPECT_EQ(loaded.error, nil) << loaded.error.description.UTF8String;
        return loaded.volume;
    }
};

TEST_F(Extension, probesEveryResourceAsUsableUnderOneIdentifier) {
    NSMutableSet* identifiers = [NSMutableSet set];
    for (FSResource* each in @[ resource(folders_.source()), [FSBlockDeviceResource resourceWithBSDName:@"disk4"] ]) {
        Waiter probed;
        Waiter* waiter = &probed;
        [fileSystem_ probeResource:each
                      replyHandler:^(FSProbeResult* result, NSError* error) {
                        waiter->replied();
                        EXPECT_EQ(error, nil);
                        EXPECT_EQ(result.result, FSMatchResultUsable);
                        EXPECT_STREQ(result.name.UTF8String, "Kemvi");
                        [identifiers addObject:result.containerID.uuid];
                      }];
        EXPECT_EQ(probed.replies(), 1);
    }
    EXPECT_EQ(identifiers.count, 1U);
}

TEST_F(Extension, ignoresBrokenPipes) {
    struct sigaction action {};

    ::sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(Extension, loadsAVolumeThatServesFiles) {
    std::ofstream(folders_.tree() / "hello.txt") << "hello, world";
    std::filesystem::create_directory(folders_.tree() / "sub");
    Volume* volume = loadLocal();
    EXPECT_STREQ(volume.name.string.UTF8String, "Kemvi");
    EXPECT_EQ(outcome(^(void (^reply)(NSError*)) {
                [volume mountWithOptions:noOptions() replyHandler:reply];
              }),
              nil);
    FSItem* root = activate(volume);
    FSItem* file = lookup(volume, "hello.txt", root);
    EXPECT_EQ(outcome(^(void (^reply)(NSError*)) {
                [volume openItem:file withModes:FSVolumeOpenModesRead replyHandler:reply];
              }),
              nil);
    EXPECT_EQ(readAll(volume, file), "hello, world");
    EXPECT_EQ(outcome(^(void (^reply)(NSError*)) {
                [volume closeItem:file keepingModes:0 replyHandler:reply];
              }),
              nil);
    FSDirectoryEntryPacker* packer = [FSDirectoryEntryPacker packerWithCapacity:10];
    [volume enumerateDirectory:root
              startingAtCookie:FSDirectoryCookieInitial
                      verifier:FSDirectoryVerifierInitial
           providingAttributes:nil
                   usingPacker:packer
                  replyHandler:^(FSDirectoryVerifier verifier, NSError* error) {
                    EXPECT_EQ(verifier, 1U);
                    EXPECT_EQ(error, nil);
                  }];
    NSArray* names = [packer.packedEntries valueForKeyPath:@"name.string"];
    EXPECT_TRUE([[NSSet setWithArray:names] isEqual:[NSSet setWithArray:(@[ @".", @"..", @"hello.txt", @"sub" ])]]);
    shutDown(volume);
}

TEST_F(Extension, changesTheTree) {
    Volume* volume = loadLocal();
    FSItem* root = activate(volume);
    FSItem* directory = create(volume, "dir", FSItemTypeDirectory, root);
    FSItem* file = create(volume, "a", FSItemTypeFile, directory);
    [volume writeContents:[NSData dataWithBytes:"0123456789" length:10]
                   toFile:file
                 atOffset:0
             replyHandler:^(size_t count, NSError* error) {
               EXPECT_EQ(count, 10U);
               EXPECT_EQ(error, nil);
             }];
    EXPECT_EQ(outcome(^(void (^reply)(NSError*)) {
                [volume synchronizeWithFlags:FSSyncFlagsWait replyHandler:reply];
              }),
              nil);
    file = lookup(volume, "a", directory); // the item of before knows the empty file
    FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
    request.size = 4;
    request.mode = 0640;
    request.uid = 12345;
    [volume setAttributes:request
                   onItem:file
             replyHandler:^(FSItemAttributes* attributes, NSError* error) {
               EXPECT_EQ(error, nil) << error.description.UTF8String;
               EXPECT_EQ(attributes.size, 4U);
             }];
    EXPECT_EQ(request.consumedAttributes, FSItemAttributeSize | FSItemAttributeMode);
    EXPECT_EQ(std::filesystem::file_size(folders_.tree() / "dir/a"), 4U);
    [volume renameItem:file
           inDirectory:directory
                 named:[FSFileName nameWithString:@"a"]
             toNewName:[FSFileName nameWithString:@"b"]
           inDirectory:root
              overItem:nil
          replyHandler:^(FSFileName* name, NSError* error) {
            EXPECT_EQ(error, nil);
            EXPECT_STREQ(name.string.UTF8String, "b");
          }];
    FSItem* moved = lookup(volume, "b", root);
    EXPECT_EQ(readAll(volume, moved), "0123");
    EXPECT_EQ(outcome(^(void (^reply)(NSError*)) {
                [volume removeItem:moved named:[FSFileName nameWithString:@"b"] fromDirectory:root replyHandler:reply];
              }),
              nil);
    EXPECT_FALSE(std::filesystem::exists(folders_.tree() / "b"));
    shutDown(volume);
}

TEST_F(Extension, tellsTheHelpersFailureWithItsMessage) {
    Volume* volume = loadLocal();
    FSItem* root = activate(volume);
    [volume lookupItemNamed:[FSFileName nameWithString:@"absent"]
                inDirectory:root
               replyHandler:^(FSItem* item, FSFileName* name, NSError* error) {
                 EXPECT_EQ(item, nil);
                 EXPECT_EQ(name, nil);
                 EXPECT_STREQ(error.domain.UTF8String, "NSPOSIXErrorDomain");
                 EXPECT_EQ(error.code, 2);
                 EXPECT_GT([error.userInfo[NSLocalizedDescriptionKey] length], 0U);
               }];
    shutDown(volume);
}

TEST_F(Extension, twoLoadsAreTwoVolumesWithIdentifiersOfTheirOwn) {
    Volume* first = loadLocal();
    Volume* second = loadLocal();
    EXPECT_NE(first, second);
    EXPECT_FALSE([first.volumeID.uuid isEqual:second.volumeID.uuid]);
    shutDown(first);
    shutDown(second);
}

TEST_F(Extension, accessToTheSourceDirectoryEndsWithTheLoad) {
    NSString* path = @(folders_.source().c_str());
    [NSURL grantSecurityScopeForPath:path];
    Volume* volume = loadLocal();
    EXPECT_EQ([NSURL begunSecurityScopesForPath:path], 1);
    EXPECT_EQ([NSURL openSecurityScopesForPath:path], 0);
    shutDown(volume);
    std::filesystem::remove(folders_.source() / "mount-config.json");
    EXPECT_EQ(load(fileSystem_, resource(folders_.source())).volume, nil);
    EXPECT_EQ([NSURL begunSecurityScopesForPath:path], 2);
    EXPECT_EQ([NSURL openSecurityScopesForPath:path], 0);
}

TEST_F(Extension, refusesAResourceThatIsNoDirectory) {
    NSError* error = load(fileSystem_, [FSBlockDeviceResource resourceWithBSDName:@"disk4"]).error;
    EXPECT_STREQ(error.domain.UTF8String, "NSPOSIXErrorDomain");
    EXPECT_EQ(error.code, 22);
    EXPECT_STREQ([error.userInfo[NSLocalizedDescriptionKey] UTF8String],
                 "KemviFS requires an FSPathURLResource source directory");
    EXPECT_EQ(fileSystem_.containerStatus.state, FSContainerStateNotReady);
}

TEST_F(Extension, aMissingConfigurationIsThePlatformsFileError) {
    NSError* error = load(fileSystem_, resource(folders_.source())).error;
    EXPECT_STREQ(error.domain.UTF8String, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 260); // no such file
}

TEST_F(Extension, aConfigurationThatIsNoneIsADecodingError) {
    std::ofstream(folders_.source() / "mount-config.json") << "[]";
    NSError* error = load(fileSystem_, resource(folders_.source())).error;
    EXPECT_STREQ(error.domain.UTF8String, "NSCocoaErrorDomain");
    EXPECT_EQ(error.code, 4864); // cannot be decoded
}

TEST_F(Extension, aHelperThatExitsAtOnceIsAProtocolFault) {
    folders_.configureScript("process.exit(3);");
    NSError* error = load(fileSystem_, resource(folders_.source())).error;
    EXPECT_STREQ(error.domain.UTF8String, "KemviFSExtension.AdapterError");
    EXPECT_EQ(error.code, 2);
    EXPECT_EQ(error.userInfo.count, 0U);
}

// The standard error with which the system starts an extension.
class NoStandardError {
public:
    NoStandardError() {
        const foundation::Descriptor nowhere(::open("/dev/null", O_RDWR | O_CLOEXEC));
        ::dup2(nowhere.number(), STDERR_FILENO);
    }

    ~NoStandardError() { ::dup2(before_.number(), STDERR_FILENO); }

    NoStandardError(const NoStandardError&) = delete;
    NoStandardError& operator=(const NoStandardError&) = delete;

private:
    const foundation::Descriptor before_{::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
};

TEST_F(Extension, whatAHelperSaysIsInTheLog) {
    const NoStandardError nowhere;
    FileSystem* fileSystem = newFileSystem();
    folders_.configureScript("console.error('no such album\\nbye'); process.exit(3);");
    EXPECT_NE(load(fileSystem, resource(folders_.source())).error, nil);
    const auto said = [&] {
        std::vector<std::string> lines;
        for (const auto& line : log_.lines())
            if (line.category == "Helper")
                lines.push_back(line.subsystem + ": " + line.text);
        return lines;
    };
    // A thread of the extension's writes them, when it comes to it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (said().size() < 2 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(said(),
              (std::vector<std::string>{"com.kemvi.fs.extension: no such album", "com.kemvi.fs.extension: bye"}));
}

TEST_F(Extension, aHelperThatRefusesThePingIsItsError) {
    folders_.configureScript(R"(
        process.stdin.once('data', () => {
            console.log(JSON.stringify({ id: '1', ok: false, error: { code: 'EACCES', message: 'not you' } }));
        });
        process.stdin.on('end', () => process.exit());)");
    NSError* error = load(fileSystem_, resource(folders_.source())).error;
    EXPECT_STREQ(error.domain.UTF8String, "NSPOSIXErrorDomain");
    EXPECT_EQ(error.code, 13);
    EXPECT_STREQ([error.userInfo[NSLocalizedDescriptionKey] UTF8String], "not you");
}

TEST_F(Extension, aHelperThatDiesFailsCallsAndDoesNotHoldUpTheEnd) {
    folders_.configureScript(R"(
        process.stdin.once('data', () => {
            console.log(JSON.stringify({ id: '1', ok: true, result: {} }));
            process.stdin.once('data', () => process.exit(1));
        });)");
    Volume* volume = load(fileSystem_, resource(folders_.source())).volume;
    ASSERT_NE(volume, nil);
    FSItem* root = activate(volume);
    for (int i = 0; i < 3; ++i) {
        [volume lookupItemNamed:[FSFileName nameWithString:@"a"]
                    inDirectory:root
                   replyHandler:^(FSItem*, FSFileName*, NSError* error) {
                     EXPECT_STREQ(error.domain.UTF8String, "KemviFSExtension.AdapterError");
                   }];
    }
    shutDown(volume);
}

TEST_F(Extension, unloadAnswersOnceWithoutErrorEvenForWhatWasNeverLoaded) {
    auto unloaded = std::make_shared<Waiter>();
    [fileSystem_ unloadResource:resource(folders_.source())
                        options:noOptions()
                   replyHandler:^(NSError* error) {
                     EXPECT_EQ(error, nil);
                     unloaded->replied();
                   }];
    ASSERT_TRUE(unloaded->wait());
    EXPECT_EQ(unloaded->replies(), 1);
}

TEST_F(Extension, oneItemIsOneObject) {
    std::filesystem::create_directory(folders_.tree() / "sub");
    Volume* volume = loadLocal();
    FSItem* root = activate(volume);
    EXPECT_EQ(activate(volume), root);
    EXPECT_EQ(lookup(volume, ".", root), root);
    FSItem* directory = lookup(volume, "sub", root);
    EXPECT_EQ(lookup(volume, ".", directory), directory);
    EXPECT_NE(lookup(volume, "..", directory), root); // an item of its own, with the root's identifier
    shutDown(volume);
}

TEST_F(Extension, aPackerThatRaisesFailsTheListingOnly) {
    Volume* volume = loadLocal();
    FSItem* root = activate(volume);
    [volume enumerateDirectory:root
              startingAtCookie:0
                      verifier:0
           providingAttributes:nil
                   usingPacker:[FSDirectoryEntryPacker raisingPacker]
                  replyHandler:^(FSDirectoryVerifier, NSError* error) {
                    EXPECT_EQ(error.code, 5);
                  }];
    EXPECT_EQ(lookup(volume, ".", root), root);
    shutDown(volume);
}

TEST_F(Extension, serializesCallsFromSeveralThreads) {
    for (int i = 0; i < 4; ++i)
        std::ofstream(folders_.tree() / ("file" + std::to_string(i))) << "content " << i;
    Volume* volume = loadLocal();
    FSItem* root = activate(volume);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            @autoreleasepool {
                const std::string name = "file" + std::to_string(i);
                for (int round = 0; round < 25; ++round) {
                    FSItem* item = lookup(volume, name.c_str(), root);
                    if (readAll(volume, item) != "content " + std::to_string(i) || lookup(volume, ".", root) != root)
                        ++wrong;
                    outcome(^(void (^reply)(NSError*)) {
                      [volume closeItem:item keepingModes:0 replyHandler:reply];
                    });
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    shutDown(volume);
}

TEST_F(Extension, givesEveryObjectBack) {
    std::ofstream(folders_.tree() / "file") << "content";
    NSArray* classes = @[
        @"KemviUnaryFileSystem", @"KemviVolume", @"KemviItem", @"KemviFSExtension", @"FSItem", @"FSItemAttributes",
        @"FSFileName", @"FSVolumeIdentifier", @"FSMutableFileDataBuffer", @"FSDirectoryEntryPacker",
        @"FSItemSetAttributesRequest", @"FSStatFSResult", @"FSVolumeSupportedCapabilities", @"FSProbeResult",
        @"FSContainerIdentifier"
    ];
    GSDebugAllocationActive(YES);
    std::vector<int> before; // what an earlier test in this process left in the pool
    for (NSString* name in classes)
        before.push_back(GSDebugAllocationCount(NSClassFromString(name)));
    std::weak_ptr<fskit::FSItem> coreItem;
    @autoreleasepool {
        FileSystem* fileSystem = newFileSystem();
        folders_.configure(KEMVI_LOCAL_HELPER);
        Volume* volume = load(fileSystem, resource(folders_.source())).volume;
        FSItem* root = activate(volume);
        FSItem* file = lookup(volume, "file", root);
        coreItem = static_cast<KemviItem*>(file).core;
        EXPECT_EQ(readAll(volume, file), "content");
        create(volume, "made", FSItemTypeFile, root);
        FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
        request.mode = 0600;
        [volume setAttributes:request
                       onItem:file
                 replyHandler:^(FSItemAttributes*, NSError*){
                 }];
        FSDirectoryEntryPacker* packer = [FSDirectoryEntryPacker packerWithCapacity:10];
        [volume enumerateDirectory:root
                  startingAtCookie:0
                          verifier:0
               providingAttributes:[[FSItemGetAttributesRequest alloc] init]
                       usingPacker:packer
                      replyHandler:^(FSDirectoryVerifier, NSError*){
                      }];
        EXPECT_EQ(packer.packedEntries.count, 4U);
        EXPECT_NE(volume.volumeStatistics, nil);
        EXPECT_NE(volume.supportedVolumeCapabilities, nil);
        [fileSystem probeResource:resource(folders_.source())
                     replyHandler:^(FSProbeResult*, NSError*){
                     }];
        shutDown(volume);
        EXPECT_GT(GSDebugAllocationCount(NSClassFromString(@"KemviItem")), 0);
    }
    for (std::size_t i = 0; i < before.size(); ++i)
        EXPECT_EQ(GSDebugAllocationCount(NSClassFromString(classes[i])), before[i]) << [classes[i] UTF8String];
    EXPECT_TRUE(coreItem.expired());
    GSDebugAllocationActive(NO);
}

TEST(ItemDeathTest, anItemWithoutACoreEndsTheProcess) {
    EXPECT_DEATH((void)[[KemviItem alloc] init], "not implemented for KemviItem");
}

} // namespace
