// KivFaceLivenessLite: everything a host includes.
#pragma once

#include "kiv/backend.hpp"
#include "kiv/delegate.hpp"
#include "kiv/environment.hpp"
#include "kiv/error_types.hpp"
#include "kiv/log_level.hpp"
#include "kiv/gif_overlay_view.hpp"
#include "kiv/image_helpers.hpp"
#include "kiv/platform/clock.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/http.hpp"
#include "kiv/platform/main_loop.hpp"
#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/task_pool.hpp"
#include "kiv/raw_value.hpp"
#include "kiv/results.hpp"
