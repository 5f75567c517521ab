// The offline analytics queue is read back from the secure store, where an
// older build, a crash mid-write or a tampered file may have left anything.
// Any bytes must decode to a queue or to absent; a decoded queue must encode
// and decode again to the same entries.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "telemetry/offline_queue_format.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto queue = kiv::queue_format::decodeQueue(bytes);
  if (!queue) return 0;
  const auto again = kiv::queue_format::decodeQueue(kiv::queue_format::encodeQueue(*queue));
  if (!again || again->size() != queue->size()) std::abort();
  for (std::size_t i = 0; i < queue->size(); ++i) {
    if ((*again)[i].endpoint != (*queue)[i].endpoint || (*again)[i].jsonBody != (*queue)[i].jsonBody) std::abort();
  }
  return 0;
}
