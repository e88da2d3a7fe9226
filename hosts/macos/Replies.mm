#import "hosts/macos/Replies.h"

#import "hosts/macos/Answer.h"
#import "hosts/macos/ToCore.h"
#import "hosts/macos/ToFSKit.h"

namespace macoshost {

fskit::ErrorReply::Handler answering(void (^reply)(NSError*)) {
    return [reply](const MaybeError& error) { reply(toFSKit(error)); };
}

fskit::NameReply::Handler answering(void (^reply)(FSFileName*, NSError*)) {
    return [reply](const std::optional<fskit::FSFileName>& name, const MaybeError& error) {
        reply(toFSKit(name), toFSKit(error));
    };
}

fskit::AttributesReply::Handler answering(void (^reply)(FSItemAttributes*, NSError*)) {
    return [reply](const std::optional<fskit::FSItemAttributes>& attributes, const MaybeError& error) {
        reply(toFSKit(attributes), toFSKit(error));
    };
}

fskit::ItemReply::Handler answering(void (^reply)(FSItem*, NSError*), std::shared_ptr<ItemTable> items) {
    return [reply, items = std::move(items)](const fskit::FSItemPtr& item, const MaybeError& error) {
        reply(items->platformItem(item), toFSKit(error));
    };
}

fskit::NamedItemReply::Handler answering(void (^reply)(FSItem*, FSFileName*, NSError*),
                                         std::shared_ptr<ItemTable> items) {
    return [reply, items = std::move(items)](const fskit::FSItemPtr& item, const std::optional<fskit::FSFileName>& name,
                                             const MaybeError& error) {
        reply(items->platformItem(item), toFSKit(name), toFSKit(error));
    };
}

SetAttributesCall::SetAttributesCall(FSItemSetAttributesRequest* request)
    : request_(request), core_(std::make_shared<fskit::FSItemSetAttributesRequest>(toCore(request))) {}

// Always assigned: the platform takes bits that were never touched for "everything was applied".
void SetAttributesCall::reportConsumed() const {
    request_.consumedAttributes = toFSKit(core_->consumedAttributes());
}

} // namespace macoshost
