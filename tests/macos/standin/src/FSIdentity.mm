// Stand-in: names, identifiers, resources, options, the file system base.
#import <FSKit/FSKitStandin.h>

#include <cstring>

NSString* const FSKitErrorDomain = @"FSKitErrorDomain";

@implementation FSFileName {
    NSData* _data;
}

- (instancetype)initWithData:(NSData*)name {
    if ((self = [super init])) {
        const void* end = name.length > 0 ? std::memchr(name.bytes, 0, name.length) : nullptr;
        const NSUInteger length =
            end ? static_cast<NSUInteger>(static_cast<const char*>(end) - static_cast<const char*>(name.bytes))
                : name.length;
        _data = [NSData dataWithBytes:name.bytes length:length];
    }
    return self;
}

- (instancetype)initWithBytes:(const char*)bytes length:(NSUInteger)length {
    return [self initWithData:[NSData dataWithBytes:bytes length:length]];
}

- (instancetype)initWithString:(NSString*)name {
    return [self initWithData:[name dataUsingEncoding:NSUTF8StringEncoding]];
}

+ (instancetype)nameWithBytes:(const char*)bytes length:(NSUInteger)length {
    return [[self alloc] initWithBytes:bytes length:length];
}

+ (instancetype)nameWithData:(NSData*)name {
    return [[self alloc] initWithData:name];
}

+ (instancetype)nameWithString:(NSString*)name {
    return [[self alloc] initWithString:name];
}

- (NSData*)data {
    return _data;
}

- (NSString*)string {
    return [[NSString alloc] initWithData:_data encoding:NSUTF8StringEncoding];
}

- (id)copyWithZone:(NSZone*)zone {
    return self;
}

@end

@implementation FSEntityIdentifier
@synthesize uuid = _uuid;

- (instancetype)init {
    return [self initWithUUID:[NSUUID UUID]];
}

- (instancetype)initWithUUID:(NSUUID*)uuid {
    if ((self = [super init]))
        _uuid = [uuid copy];
    return self;
}

- (id)copyWithZone:(NSZone*)zone {
    return [[[self class] alloc] initWithUUID:_uuid];
}

@end

@implementation FSVolumeIdentifier
@end

@implementation FSContainerIdentifier
@end

@implementation FSContainerStatus
@synthesize state = _state, status = _status;

+ (instancetype)statusWithState:(FSContainerState)state error:(NSError*)error {
    FSContainerStatus* status = [[self alloc] init];
    status->_state = state;
    status->_status = [error copy];
    return status;
}

+ (FSContainerStatus*)active {
    return [self statusWithState:FSContainerStateActive error:nil];
}

+ (FSContainerStatus*)ready {
    return [self statusWithState:FSContainerStateReady error:nil];
}

+ (instancetype)notReadyWithStatus:(NSError*)error {
    return [self statusWithState:FSContainerStateNotReady error:error];
}

- (id)copyWithZone:(NSZone*)zone {
    return self;
}

@end

@implementation FSResource
@end

@implementation FSPathURLResource
@synthesize url = _url, writable = _writable;

- (instancetype)initWithURL:(NSURL*)url writable:(BOOL)writable {
    if ((self = [super init])) {
        _url = [url copy];
        _writable = writable;
    }
    return self;
}

@end

@implementation FSGenericURLResource
@synthesize url = _url;

- (instancetype)initWithURL:(NSURL*)url {
    if ((self = [super init]))
        _url = [url copy];
    return self;
}

@end

@implementation FSBlockDeviceResource
@synthesize BSDName = _BSDName, writable = _writable;

+ (instancetype)resourceWithBSDName:(NSString*)name {
    FSBlockDeviceResource* resource = [[self alloc] init];
    resource->_BSDName = [name copy];
    return resource;
}

@end

@implementation FSProbeResult
@synthesize result = _result, name = _name, containerID = _containerID;

+ (instancetype)resultOfKind:(FSMatchResult)kind name:(NSString*)name containerID:(FSContainerIdentifier*)containerID {
    FSProbeResult* result = [[self alloc] init];
    result->_result = kind;
    result->_name = [name copy];
    result->_containerID = containerID;
    return result;
}

+ (FSProbeResult*)notRecognizedProbeResult {
    return [[self alloc] init];
}

+ (instancetype)recognizedProbeResultWithName:(NSString*)name containerID:(FSContainerIdentifier*)containerID {
    return [self resultOfKind:FSMatchResultRecognized name:name containerID:containerID];
}

+ (instancetype)usableButLimitedProbeResultWithName:(NSString*)name containerID:(FSContainerIdentifier*)containerID {
    return [self resultOfKind:FSMatchResultUsableButLimited name:name containerID:containerID];
}

+ (instancetype)usableProbeResultWithName:(NSString*)name containerID:(FSContainerIdentifier*)containerID {
    return [self resultOfKind:FSMatchResultUsable name:name containerID:containerID];
}

@end

@implementation FSTaskOptions {
    NSArray* _arguments;
}

+ (instancetype)optionsWithArguments:(NSArray*)arguments {
    FSTaskOptions* options = [[self alloc] init];
    options->_arguments = [arguments copy];
    return options;
}

- (NSArray*)taskOptions {
    return _arguments;
}

@end

@implementation FSUnaryFileSystem
@synthesize containerStatus = _containerStatus;

- (instancetype)init {
    if ((self = [super init]))
        _containerStatus = [FSContainerStatus notReadyWithStatus:[NSError errorWithDomain:FSKitErrorDomain
                                                                                     code:0
                                                                                 userInfo:nil]];
    return self;
}

- (void)wipeResource:(FSBlockDeviceResource*)resource completionHandler:(void (^)(NSError*))completion {
    completion([NSError errorWithDomain:NSPOSIXErrorDomain code:45 userInfo:nil]);
}

@end
