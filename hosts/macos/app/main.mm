// The application around the extension. Opening it once makes the system know the extension; it then says how to switch
// the extension on, and does nothing else.

#import <AppKit/AppKit.h>

namespace {

NSString* const explanation =
    @"Kemvi mounts a folder that a helper program serves. macOS asks you to switch the extension on yourself:\n\n"
    @"1. Open System Settings > General > Login Items & Extensions.\n"
    @"2. Under Extensions choose By Category, then File System Extensions.\n"
    @"3. Switch Kemvi on.\n\n"
    @"Then, in Terminal:\n"
    @"mount -F -t kemvifs SOURCE MOUNTPOINT";

NSString* const extensionSettings = @"x-apple.systempreferences:com.apple.LoginItems-Settings.extension";

} // namespace

int main() {
    @autoreleasepool {
        [NSApplication.sharedApplication setActivationPolicy:NSApplicationActivationPolicyRegular];
        [NSApplication.sharedApplication activate];
        NSAlert* alert = [[NSAlert alloc] init];
        alert.messageText = @"Kemvi is installed";
        alert.informativeText = explanation;
        [alert addButtonWithTitle:@"Open System Settings"];
        [alert addButtonWithTitle:@"Quit"];
        if ([alert runModal] == NSAlertFirstButtonReturn)
            [NSWorkspace.sharedWorkspace openURL:[NSURL URLWithString:extensionSettings]];
    }
    return 0;
}
