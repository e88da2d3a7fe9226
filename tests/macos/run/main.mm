#import <Foundation/Foundation.h>

#include <gmock/gmock.h>

int main(int argc, char** argv) {
    @autoreleasepool {
        testing::InitGoogleMock(&argc, argv);
        return RUN_ALL_TESTS();
    }
}
