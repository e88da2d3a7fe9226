#pragma once

#import <FSKit/FSKitDefines.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@interface FSFileName : NSObject <NSCopying>
FSKIT_NO_INIT
- (instancetype)initWithBytes:(const char*)bytes length:(NSUInteger)length;
- (instancetype)initWithData:(NSData*)name;
- (instancetype)initWithString:(NSString*)name;
+ (instancetype)nameWithBytes:(const char*)bytes length:(NSUInteger)length;
+ (instancetype)nameWithData:(NSData*)name;
+ (instancetype)nameWithString:(NSString*)name;
@property(readonly) NSData* data;
@property(readonly, nullable) NSString* string; // nil when the data is not valid UTF-8
@end

NS_ASSUME_NONNULL_END
