#pragma once

#include <windows.h>
#include <unknwn.h>

namespace lab::toast {

// Keeps one stub of the interface, with a reference to the object, until the process ends: for a server that
// COM is set up in, before it offers its class.
//
// Wine takes an interface's registration away with the last stub of it, and waits then for the calls that are
// under way; the word of one that ends just then can be lost. That wait never ends, and holds a lock that the
// next client needs. With a stub that stays, the registration stays. What fails is an interface that the
// object does not have, or that cannot be marshalled.
[[nodiscard]] HRESULT KeepStub(REFIID interfaceId, IUnknown* object);

}  // namespace lab::toast
