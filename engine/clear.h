#ifndef ZOR_ENGINE_CLEAR_H_
#define ZOR_ENGINE_CLEAR_H_

#include <cstdint>

#include "engine/registry.h"

namespace zor {

// Renders and resets every instance that mask concerns; the result becomes the DG's status. See
// zor_process_engine_clear_dg_data() in zor/engine.h.
std::uint32_t ClearDg(Dg &dg, std::uint16_t mask, std::uint32_t mode);

}  // namespace zor

#endif  // ZOR_ENGINE_CLEAR_H_
