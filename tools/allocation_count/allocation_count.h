#pragma once
// Counts every operator new of the process. A program that links zaltor_allocation_count
// gets global operator new and delete replacements (over malloc and free) that count each
// allocation, of every thread; the allocation test of the decision pass and the
// decision-pass benchmark read the count around the passes. Only programs of their own
// link it: the other tests keep the standard operator new and the sanitizers' checks of it.

#include <cstdint>

namespace zaltor::rig {

// The operator new calls of the process so far.
uint64_t allocation_count();

}  // namespace zaltor::rig
