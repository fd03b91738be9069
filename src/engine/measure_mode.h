#pragma once
// MeasureMode: the RSSI and link-rate samples of the mode that is set on the device now.

#include <cstdint>

#include "engine/pass_parameters.h"
#include "engine/sample_buffers.h"
#include "engine/worker.h"

namespace zaltor::engine {

// Takes up to RSSICollectCount (N, of the pass's config set `pass`) samples of mode index
// `modeIndex`, which the caller has already set on the device, into the mode's rows of
// `buffers`; `successCount` receives the number of samples that have both an RSSI and a
// link rate.
//
// One attempt: the antenna count from the device and the RSSI of that many antennas; the
// sample is the whole-number (truncating) mean of the readings that are not -95, logged as
// "*%d " when an antenna read -95 and "%d " otherwise. A failed read, or antennas that all
// read -95, log "*ERR, " and the attempt counts. Then the link rate (the counters' last
// link speed): a failed read or a rate not above 0 logs "(--/Retry), " and the same attempt
// is taken again at once, neither counted nor followed by a wait, until a rate arrives or a
// stop or re-evaluation request comes. (On the simulated notebook's virtual clock, where
// time moves only while every thread waits, such retries hold simulated time still until a
// stop or request arrives from outside.) Between attempts it waits RSSICollectInterval in
// one-second steps (RSSICollectInterval of the pass's set), looking for a stop or a request
// after each step.
//
// A stop (keepRunning cleared) or a re-evaluation request ends the measurement early,
// without the closing "Avg: ..." line; the request is left for the loop to consume. Only
// when every attempt ran does it log "Avg: %.1lf Mbps\n\n" (or "Avg: N/A\n\n", followed by
// "All fail while getting rssi for mode %d\n" at warning level).
//
// Each successful RSSI read is also recorded as the automatic sweep result that the
// all-ports sweep reports in automatic mode: antenna p reads port p with its switch in the
// position that bit p of `modeIndex` gives.
void MeasureMode(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                 const PassParameters& pass, SampleBuffers& buffers, int32_t modeIndex,
                 uint32_t& successCount);

// The same with the parameters of the config set in force now.
void MeasureMode(AntennaSwitchWorkerObj& worker, AutoSwitchingWorkerArg& arg,
                 SampleBuffers& buffers, int32_t modeIndex, uint32_t& successCount);

}  // namespace zaltor::engine
