// Every call of the platform is answered exactly once and with the right error, whatever the core does.

#import "hosts/macos/KemviVolume.h"
#import "macos/run/MisbehavingVolume.h"

#import <FSKit/FSKitStandin.h>
#import <Foundation/NSDebug.h>

#include "foundation/DecodingError.h"
#include "helper/AdapterError.h"
#include "support/RecordingLog.h"

#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <thread>

namespace {

using macostests::Ending;
using macostests::MisbehavingVolume;

struct Answers {
    int count = 0;
    NSError* error = nil;
};

KemviVolume* volumeOver(std::shared_ptr<fskit::FSVolume> core) {
    return [[KemviVolume alloc] initWithVolume:std::move(core)];
}

// Calls every operation of the volume once and passes what each answered to `check`, with its name.
void callEveryOperation(KemviVolume* volume, const std::function<void(const char*, const Answers&)>& check) {
    FSTaskOptions* options = [FSTaskOptions optionsWithArguments:@[]];
    FSItem* item = [[FSItem alloc] init];
    FSFileName* name = [FSFileName nameWithString:@"name"];
    FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
    FSItemGetAttributesRequest* wanted = [[FSItemGetAttributesRequest alloc] init];
    FSDirectoryEntryPacker* packer = [FSDirectoryEntryPacker packerWithCapacity:1];
    FSMutableFileDataBuffer* buffer = [FSMutableFileDataBuffer bufferWithLength:8];
    NSData* data = [NSData dataWithBytes:"x" length:1];
    Answers answers;
    Answers* into = &answers;
    const auto done = [&](const char* operation) {
        check(operation, answers);
        answers = {};
    };
    void (^onError)(NSError*) = ^(NSError* error) {
      ++into->count;
      into->error = error;
    };
    void (^onItem)(FSItem*, FSFileName*, NSError*) = ^(FSItem*, FSFileName*, NSError* error) {
      onError(error);
    };
    void (^onName)(FSFileName*, NSError*) = ^(FSFileName*, NSError* error) {
      onError(error);
    };
    void (^onAttributes)(FSItemAttributes*, NSError*) = ^(FSItemAttributes*, NSError* error) {
      onError(error);
    };
    void (^onCount)(size_t, NSError*) = ^(size_t, NSError* error) {
      onError(error);
    };

    [volume mountWithOptions:options replyHandler:onError];
    done("mount");
    [volume activateWithOptions:options
                   replyHandler:^(FSItem*, NSError* error) {
                     onError(error);
                   }];
    done("activate");
    [volume synchronizeWithFlags:FSSyncFlagsWait replyHandler:onError];
    done("synchronize");
    [volume getAttributes:wanted ofItem:item replyHandler:onAttributes];
    done("getAttributes");
    [volume setAttributes:request onItem:item replyHandler:onAttributes];
    done("setAttributes");
    [volume lookupItemNamed:name inDirectory:item replyHandler:onItem];
    done("lookupItem");
    [volume reclaimItem:item replyHandler:onError];
    done("reclaimItem");
    [volume readSymbolicLink:item replyHandler:onName];
    done("readSymbolicLink");
    [volume createItemNamed:name type:FSItemTypeFile inDirectory:item attributes:request replyHandler:onItem];
    done("createItem");
    [volume createSymbolicLinkNamed:name inDirectory:item attributes:request linkContents:name replyHandler:onItem];
    done("createSymbolicLink");
    [volume createLinkToItem:item named:name inDirectory:item replyHandler:onName];
    done("createLink");
    [volume removeItem:item named:name fromDirectory:item replyHandler:onError];
    done("removeItem");
    [volume renameItem:item
           inDirectory:item
                 named:name
             toNewName:name
           inDirectory:item
              overItem:nil
          replyHandler:onName];
    done("renameItem");
    [volume enumerateDirectory:item
              startingAtCookie:0
                      verifier:0
           providingAttributes:nil
                   usingPacker:packer
                  replyHandler:^(FSDirectoryVerifier, NSError* error) {
                    onError(error);
                  }];
    done("enumerateDirectory");
    [volume openItem:item withModes:FSVolumeOpenModesRead replyHandler:onError];
    done("openItem");
    [volume closeItem:item keepingModes:0 replyHandler:onError];
    done("closeItem");
    [volume readFromFile:item offset:0 length:8 intoBuffer:buffer replyHandler:onCount];
    done("read");
    [volume writeContents:data toFile:item atOffset:0 replyHandler:onCount];
    done("write");
    [volume deactivateWithOptions:0 replyHandler:onError];
    done("deactivate");
    // No error can be told here; being answered once is all.
    [volume unmountWithReplyHandler:^{
      ++into->count;
    }];
    EXPECT_EQ(answers.count, 1) << "unmount";
}

// What every operation answers over a core that ends like that.
void expectEveryAnswer(Ending ending, std::function<void()> thrower, NSString* domain, NSInteger code,
                       NSString* description) {
    const testsupport::RecordingLog quiet;
    @autoreleasepool {
        KemviVolume* volume = volumeOver(std::make_shared<MisbehavingVolume>(ending, std::move(thrower)));
        callEveryOperation(volume, [&](const char* operation, const Answers& answers) {
            EXPECT_EQ(answers.count, 1) << operation;
            if (!domain) {
                EXPECT_EQ(answers.error, nil) << operation;
                return;
            }
            EXPECT_STREQ(answers.error.domain.UTF8String, domain.UTF8String) << operation;
            EXPECT_EQ(answers.error.code, code) << operation;
            NSString* told = answers.error.userInfo[NSLocalizedDescriptionKey];
            EXPECT_TRUE(told == description || [told isEqualToString:description]) << operation;
        });
    }
}

TEST(Answering, passesSuccessOn) {
    expectEveryAnswer(Ending::answers, {}, nil, 0, nil);
}

TEST(Answering, aPosixErrorKeepsItsCodeAndDescription) {
    const auto thrower = [] { throw foundation::NSErrorException(foundation::NSError::posix(66, "not empty")); };
    expectEveryAnswer(Ending::throws, thrower, NSPOSIXErrorDomain, 66, @"not empty");
}

TEST(Answering, aPosixErrorWithoutDescriptionHasNoUserInfo) {
    expectEveryAnswer(
        Ending::throws, [] { foundation::throwPosix(22); }, NSPOSIXErrorDomain, 22, nil);
}

TEST(Answering, aFaultOfTheProtocolKeepsItsTextInside) {
    const auto thrower = [] { throw kemvi::AdapterError::protocolError("helper closed stdout"); };
    expectEveryAnswer(Ending::throws, thrower, @"KemviFSExtension.AdapterError", 2, nil);
}

TEST(Answering, lackOfMemoryIsNamed) {
    expectEveryAnswer(
        Ending::throws, [] { throw std::bad_alloc(); }, NSPOSIXErrorDomain, 12, nil);
}

TEST(Answering, anyOtherExceptionIsAnInputOutputError) {
    expectEveryAnswer(
        Ending::throws, [] { throw std::runtime_error("text for the log"); }, NSPOSIXErrorDomain, 5, nil);
    expectEveryAnswer(
        Ending::throws, [] { throw 42; }, NSPOSIXErrorDomain, 5, nil);
}

TEST(Answering, anExceptionOfThePlatformIsAnInputOutputError) {
    const auto thrower = [] { [NSException raise:NSGenericException format:@"raised"]; };
    expectEveryAnswer(Ending::throws, thrower, NSPOSIXErrorDomain, 5, nil);
}

TEST(Answering, anExceptionAfterTheAnswerIsNoSecondAnswer) {
    expectEveryAnswer(
        Ending::throwsAfterAnswering, [] { foundation::throwPosix(22); }, nil, 0, nil);
}

TEST(Answering, aDroppedReplyIsAnInputOutputError) {
    expectEveryAnswer(Ending::dropsTheReply, {}, NSPOSIXErrorDomain, 5, nil);
    expectEveryAnswer(
        Ending::dropsTheReplyInAnInnerException, [] { foundation::throwPosix(22); }, NSPOSIXErrorDomain, 5, nil);
}

TEST(Answering, anEmptyDescriptionIsStillADescription) {
    const auto thrower = [] { throw foundation::NSErrorException(foundation::NSError::posix(2, "")); };
    expectEveryAnswer(Ending::throws, thrower, NSPOSIXErrorDomain, 2, @"");
}

TEST(Buffers, areTheCoresOwnMemoryWithoutACopy) {
    auto core = std::make_shared<MisbehavingVolume>(Ending::answers, nullptr);
    KemviVolume* volume = volumeOver(core);
    FSItem* item = [[FSItem alloc] init];
    FSMutableFileDataBuffer* buffer = [FSMutableFileDataBuffer bufferWithLength:8];
    [volume readFromFile:item
                  offset:0
                  length:8
              intoBuffer:buffer
            replyHandler:^(size_t, NSError*){
            }];
    EXPECT_EQ(static_cast<const void*>(core->memory), buffer.mutableBytes);
    NSData* data = [NSData dataWithBytes:"0123456789" length:10];
    [volume writeContents:data
                   toFile:item
                 atOffset:0
             replyHandler:^(size_t, NSError*){
             }];
    EXPECT_EQ(static_cast<const void*>(core->memory), data.bytes);
}

// The core may answer a read or write later and on another thread; the memory has to last until then.
TEST(Buffers, liveUntilTheAnswerAndNoLonger) {
    Class bufferClass = [FSMutableFileDataBuffer class];
    auto core = std::make_shared<MisbehavingVolume>(Ending::answersLater, nullptr);
    KemviVolume* volume = volumeOver(core);
    GSDebugAllocationActive(YES);
    std::size_t answered = 0;
    std::size_t* into = &answered;
    @autoreleasepool {
        FSItem* item = [[FSItem alloc] init];
        [volume readFromFile:item
                      offset:0
                      length:8
                  intoBuffer:[FSMutableFileDataBuffer bufferWithLength:8]
                replyHandler:^(size_t count, NSError*) {
                  *into = count;
                }];
    }
    EXPECT_EQ(GSDebugAllocationCount(bufferClass), 1);
    std::thread([&] { core->held(5, std::nullopt); }).join();
    EXPECT_EQ(answered, 5U);
    EXPECT_EQ(GSDebugAllocationCount(bufferClass), 0);
    @autoreleasepool {
        NSMutableData* data = [[NSMutableData alloc] initWithLength:3];
        std::memcpy(data.mutableBytes, "abc", 3);
        [volume writeContents:data
                       toFile:[[FSItem alloc] init]
                     atOffset:0
                 replyHandler:^(size_t count, NSError*) {
                   *into = count;
                 }];
    }
    EXPECT_EQ(std::memcmp(core->memory, "abc", 3), 0);
    std::thread([&] { core->held(3, std::nullopt); }).join();
    EXPECT_EQ(answered, 3U);
    GSDebugAllocationActive(NO);
}

TEST(SettingAttributes, saysWhatWasConsumedAlsoWhenNothingWas) {
    KemviVolume* volume = volumeOver(std::make_shared<MisbehavingVolume>(Ending::answers, nullptr));
    FSItemSetAttributesRequest* request = [[FSItemSetAttributesRequest alloc] init];
    [volume setAttributes:request
                   onItem:[[FSItem alloc] init]
             replyHandler:^(FSItemAttributes*, NSError*){
             }];
    EXPECT_TRUE(request.consumedAttributesAssigned);
    EXPECT_EQ(request.consumedAttributes, 0);
    request = [[FSItemSetAttributesRequest alloc] init];
    [volume createItemNamed:[FSFileName nameWithString:@"a"]
                       type:FSItemTypeFile
                inDirectory:[[FSItem alloc] init]
                 attributes:request
               replyHandler:^(FSItem*, FSFileName*, NSError*){
               }];
    EXPECT_TRUE(request.consumedAttributesAssigned);
}

} // namespace
