#pragma once

#import <Foundation/Foundation.h>

// Which system version introduced a declaration, in the framework's own generations. The check for the macOS target
// refuses the use of a later one without @available.
#define FSKIT_API_AVAILABILITY_V1 __attribute__((availability(macos, introduced = 15.4)))
#define FSKIT_API_AVAILABILITY_V2 __attribute__((availability(macos, introduced = 26.0)))

// Absent from GNUstep's Foundation, or empty there.
#ifndef NS_RETURNS_INNER_POINTER
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
#endif

// Classes whose plain initialiser the framework keeps to itself.
#ifdef FSKIT_STANDIN_BUILD
#define FSKIT_NO_INIT
#else
#define FSKIT_NO_INIT -(instancetype)init __attribute__((unavailable));
#endif

NS_ASSUME_NONNULL_BEGIN

FOUNDATION_EXPORT NSString* const FSKitErrorDomain;

// Part of the platform's Foundation, missing in GNUstep's.
@interface NSURL (SecurityScope)
- (BOOL)startAccessingSecurityScopedResource;
- (void)stopAccessingSecurityScopedResource;
@end

NS_ASSUME_NONNULL_END
