// The fence as rules of nftables.
#pragma once

#include <string>

#include "service/fence/fence_list.h"

namespace service {

constexpr char kFenceTable[] = "ip quillon_fence";

/// Why a datagram was let in or turned away: the name of a counter, and what it means.
struct FenceReason {
    const char *counter, *words;
};
extern const FenceReason kFenceReasons[];
extern const std::size_t kFenceReasonCount;

/// The rules as input for nft: one table, which replaces an earlier one in one step.
std::string fenceRules(const FenceList &list);

}  // namespace service
