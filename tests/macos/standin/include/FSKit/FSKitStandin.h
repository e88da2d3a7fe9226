// What whoever plays FSKit in the tests needs beyond the framework's public interface: making the objects that the
// framework only hands out, and seeing what was put into them.
#pragma once

#import <FSKit/FSKit.h>

NS_ASSUME_NONNULL_BEGIN

@interface FSTaskOptions (Standin)
+ (instancetype)optionsWithArguments:(NSArray<NSString*>*)arguments;
@end

@interface FSBlockDeviceResource (Standin)
+ (instancetype)resourceWithBSDName:(NSString*)name;
@end

@interface FSMutableFileDataBuffer (Standin)
+ (instancetype)bufferWithLength:(NSUInteger)length;
@end

@interface FSItemSetAttributesRequest ()
/// Whether a volume ever said what it consumed. The platform takes silence for "everything".
@property(nonatomic, readonly) BOOL consumedAttributesAssigned;
@end

/// One entry as it was packed.
@interface FSPackedEntry : NSObject
@property(readonly) FSFileName* name;
@property(readonly) FSItemType itemType;
@property(readonly) FSItemID itemID;
@property(readonly) FSDirectoryCookie nextCookie;
@property(readonly, nullable) FSItemAttributes* attributes;
@end

@interface FSDirectoryEntryPacker (Standin)
/// Takes that many entries and refuses the next.
+ (instancetype)packerWithCapacity:(NSUInteger)entries;
/// Raises an NSException at the first entry.
+ (instancetype)raisingPacker;
@property(readonly, copy) NSArray<FSPackedEntry*>* packedEntries;
@end

/// Balance of security-scoped access to a URL's path, in the stand-in for the platform's NSURL.
@interface NSURL (SecurityScopeStandin)
/// From now on access to this path can be begun; before, beginning it answers NO.
+ (void)grantSecurityScopeForPath:(NSString*)path;
/// How often access to this path was begun and not ended.
+ (NSInteger)openSecurityScopesForPath:(NSString*)path;
/// How often access to this path was begun at all.
+ (NSInteger)begunSecurityScopesForPath:(NSString*)path;
@end

NS_ASSUME_NONNULL_END
