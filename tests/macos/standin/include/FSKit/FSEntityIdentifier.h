#pragma once

#import <FSKit/FSKitDefines.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@interface FSEntityIdentifier : NSObject <NSCopying>
- (instancetype)init; // a random UUID
- (instancetype)initWithUUID:(NSUUID*)uuid;
@property(copy) NSUUID* uuid;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSVolumeIdentifier : FSEntityIdentifier
@end

FSKIT_API_AVAILABILITY_V1
@interface FSContainerIdentifier : FSEntityIdentifier
@end

NS_ASSUME_NONNULL_END
