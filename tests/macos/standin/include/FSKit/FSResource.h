#pragma once

#import <FSKit/FSEntityIdentifier.h>
#import <FSKit/FSKitDefines.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@interface FSResource : NSObject
FSKIT_NO_INIT
@end

FSKIT_API_AVAILABILITY_V2
@interface FSPathURLResource : FSResource
@property(readonly, copy) NSURL* url;
@property(readonly, getter=isWritable) BOOL writable;
- (instancetype)initWithURL:(NSURL*)URL writable:(BOOL)writable;
@end

FSKIT_API_AVAILABILITY_V2
@interface FSGenericURLResource : FSResource
@property(readonly, copy) NSURL* url;
- (instancetype)initWithURL:(NSURL*)url;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSBlockDeviceResource : FSResource
@property(readonly, copy) NSString* BSDName;
@property(readonly, getter=isWritable) BOOL writable;
@end

typedef NS_ENUM(NSInteger, FSMatchResult) {
    FSMatchResultNotRecognized = 0,
    FSMatchResultRecognized,
    FSMatchResultUsableButLimited,
    FSMatchResultUsable,
};

FSKIT_API_AVAILABILITY_V1
@interface FSProbeResult : NSObject
FSKIT_NO_INIT
@property(readonly) FSMatchResult result;
@property(readonly, copy, nullable) NSString* name;
@property(readonly, nullable) FSContainerIdentifier* containerID;
@property(class, readonly) FSProbeResult* notRecognizedProbeResult;
+ (instancetype)recognizedProbeResultWithName:(NSString*)name containerID:(FSContainerIdentifier*)containerID;
+ (instancetype)usableButLimitedProbeResultWithName:(NSString*)name containerID:(FSContainerIdentifier*)containerID;
+ (instancetype)usableProbeResultWithName:(NSString*)name containerID:(FSContainerIdentifier*)containerID;
@end

NS_ASSUME_NONNULL_END
