// The memory that all of this process together may take: one account with a limit.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// Limits the bytes that are counted; 0 lifts the limit.
void SetMemoryLimit(u64 bytes);
u64 MemoryLimit();

/// Adds what somebody has taken to the account, or takes off it what was given back.
void CountMemory(u64 bytes);
void UncountMemory(u64 bytes);
/// Bytes that are counted now.
u64 MemoryInUse();

/// Whether that many bytes more stay below the limit.
bool MemoryAllows(double bytes);

}  // namespace MELDO_GLOBAL::host
