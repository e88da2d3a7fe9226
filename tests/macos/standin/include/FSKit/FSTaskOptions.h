#pragma once

#import <FSKit/FSKitDefines.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@interface FSTaskOptions : NSObject
FSKIT_NO_INIT
@property(readonly, copy) NSArray<NSString*>* taskOptions; // like a command line: "-o", "ro", ...
@end

NS_ASSUME_NONNULL_END
