// Stand-in: security-scoped access, which GNUstep's NSURL does not have. Access nests and is counted by path.
#import <FSKit/FSKitStandin.h>

#include <map>
#include <mutex>
#include <string>

namespace {

struct Scope {
    NSInteger open = 0;
    NSInteger begun = 0;
};

std::mutex scopesLock;
std::map<std::string, Scope> scopes; // by path; only granted paths are listed

} // namespace

@implementation NSURL (SecurityScope)

- (BOOL)startAccessingSecurityScopedResource {
    const std::lock_guard guard(scopesLock);
    auto found = scopes.find(self.path.UTF8String);
    if (found == scopes.end())
        return NO;
    ++found->second.open;
    ++found->second.begun;
    return YES;
}

- (void)stopAccessingSecurityScopedResource {
    const std::lock_guard guard(scopesLock);
    auto found = scopes.find(self.path.UTF8String);
    if (found != scopes.end())
        --found->second.open;
}

@end

@implementation NSURL (SecurityScopeStandin)

+ (void)grantSecurityScopeForPath:(NSString*)path {
    const std::lock_guard guard(scopesLock);
    scopes[path.UTF8String] = {};
}

+ (NSInteger)openSecurityScopesForPath:(NSString*)path {
    const std::lock_guard guard(scopesLock);
    return scopes[path.UTF8String].open;
}

+ (NSInteger)begunSecurityScopesForPath:(NSString*)path {
    const std::lock_guard guard(scopesLock);
    return scopes[path.UTF8String].begun;
}

@end
