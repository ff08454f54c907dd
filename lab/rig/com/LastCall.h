#pragma once

namespace lab::rig {

// To be called before the last reference to a proxy is released. A call whose answer has just come may not be
// over in the server yet. Wine's server then waits for its end when it takes the object's stub away, can miss
// that end, and waits for ever, and so does the caller of Release. Windows does not.
void AwaitEndOfLastCall();

}  // namespace lab::rig
