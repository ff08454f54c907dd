#pragma once

namespace lab::rig {

// Where a camera is when the run begins.
enum class StartingPlace { Unplugged, Running, InDfuMode };

}  // namespace lab::rig
