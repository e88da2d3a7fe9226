#pragma once

#import <FSKit/FSKit.h>

#import "hosts/macos/ItemTable.h"

#include "fskit/FSVolume.h"

#include <memory>

NS_ASSUME_NONNULL_BEGIN

// The platform's reply blocks as handlers of the core's answers: each converts the answer and calls the block.
namespace macoshost {

fskit::ErrorReply::Handler answering(void (^reply)(NSError* _Nullable));
fskit::NameReply::Handler answering(void (^reply)(FSFileName* _Nullable, NSError* _Nullable));
fskit::AttributesReply::Handler answering(void (^reply)(FSItemAttributes* _Nullable, NSError* _Nullable));
fskit::ItemReply::Handler answering(void (^reply)(FSItem* _Nullable, NSError* _Nullable),
                                    std::shared_ptr<ItemTable> items);
fskit::NamedItemReply::Handler answering(void (^reply)(FSItem* _Nullable, FSFileName* _Nullable, NSError* _Nullable),
                                         std::shared_ptr<ItemTable> items);

/// Attributes to be set: the platform's request and the core's reading of it, which the core marks up.
class SetAttributesCall {
public:
    explicit SetAttributesCall(FSItemSetAttributesRequest* request);

    /// Valid as long as any copy of this.
    fskit::FSItemSetAttributesRequest& core() const { return *core_; }

    /// Tells the platform what was consumed, then answers.
    template <typename... Args>
    std::function<void(Args...)> beforeAnswer(std::function<void(Args...)> answer) const {
        return [call = *this, answer = std::move(answer)](Args... args) {
            call.reportConsumed();
            answer(std::move(args)...);
        };
    }

private:
    void reportConsumed() const;

    FSItemSetAttributesRequest* request_;
    std::shared_ptr<fskit::FSItemSetAttributesRequest> core_;
};

} // namespace macoshost

NS_ASSUME_NONNULL_END
