#pragma once

#import <FSKit/FSContainer.h>
#import <FSKit/FSKitDefines.h>
#import <FSKit/FSResource.h>
#import <FSKit/FSTaskOptions.h>
#import <FSKit/FSVolume.h>

NS_ASSUME_NONNULL_BEGIN

FSKIT_API_AVAILABILITY_V1
@protocol FSFileSystemBase <NSObject>
@property(copy) FSContainerStatus* containerStatus;
- (void)wipeResource:(FSBlockDeviceResource*)resource completionHandler:(void (^)(NSError* _Nullable error))completion;
@end

FSKIT_API_AVAILABILITY_V1
@protocol FSUnaryFileSystemOperations <NSObject>
- (void)probeResource:(FSResource*)resource
         replyHandler:(void (^)(FSProbeResult* _Nullable result, NSError* _Nullable error))replyHandler;
- (void)loadResource:(FSResource*)resource
             options:(FSTaskOptions*)options
        replyHandler:(void (^)(FSVolume* _Nullable volume, NSError* _Nullable err))replyHandler;
- (void)unloadResource:(FSResource*)resource
               options:(FSTaskOptions*)options
          replyHandler:(void (^)(NSError* _Nullable err))reply;
@optional
- (void)didFinishLoading;
@end

FSKIT_API_AVAILABILITY_V1
@interface FSUnaryFileSystem : NSObject <FSFileSystemBase>
@end

NS_ASSUME_NONNULL_END
