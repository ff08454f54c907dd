#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <cfgmgr32.h>

#include <cstddef>
#include <vector>

namespace bench {

// A configuration manager with a number of USB interfaces present: while it lives, the two list queries copy
// a list that was prepared. The links are of the length and form that Windows has, in mixed case; kMatching
// of them are those of cameras in DFU mode, at a third and at two thirds of the list. One at a time.
class PresentLinks : public test_support::OnlyOne<PresentLinks> {
  public:
    static constexpr std::size_t kMatching = 2;

    // Throws std::invalid_argument for fewer than 10 links.
    explicit PresentLinks(std::size_t count);

    // Throws std::runtime_error when a work found another number of links than there are to match.
    static void MustBeAllMatching(std::size_t found);

  private:
    static CONFIGRET WINAPI GetListSize(ULONG* length, GUID* interfaceClass, DEVINSTID_W device, ULONG flags);
    static CONFIGRET WINAPI GetList(GUID* interfaceClass, DEVINSTID_W device, wchar_t* buffer, ULONG length,
                                    ULONG flags);

    std::vector<wchar_t> list_;
    test_support::ImportRedirect getListSize_;
    test_support::ImportRedirect getList_;
};

}  // namespace bench
