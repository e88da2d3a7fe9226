#pragma once

#import <FSKit/FSKit.h>

#include "fskit/FSItem.h"

#include <span>

NS_ASSUME_NONNULL_BEGIN

namespace macostests {

/// One attribute of a record, told apart by its bit. The tests' own reading of the platform's records, so that a
/// mistake in the extension's conversions is not undone by using them twice.
struct AttributeRow {
    int bit; // its number, the same on both sides
    const char* name;
    /// Sets it on both sides to one value made from `seed`; different seeds give different values.
    void (*setBoth)(FSItemAttributes* platform, fskit::FSItemAttributes& core, unsigned seed);
    void (*toPlatform)(const fskit::FSItemAttributes& core, FSItemAttributes* platform);
    void (*toCore)(FSItemAttributes* platform, fskit::FSItemAttributes& core);
    bool (*equal)(FSItemAttributes* platform, const fskit::FSItemAttributes& core);
};

/// All 18.
std::span<const AttributeRow> attributeRows();

/// Sets the valid attributes of `core` on `platform`.
void fill(FSItemAttributes* platform, const fskit::FSItemAttributes& core);

/// The valid attributes of `platform`.
fskit::FSItemAttributes coreAttributes(FSItemAttributes* platform);

} // namespace macostests

NS_ASSUME_NONNULL_END
