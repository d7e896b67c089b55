#include "nightly/Turn.h"

#include "common/Text.h"
#include "nightly/Ledger.h"

#include <cstdio>

namespace vesk::nightly {

bool takeTurn(Ledger &ledger)
{
    if (ledger.tryLock())
        return true;
    printf("waiting for another run for %s\n", qPrintable(clean(ledger.site().host)));
    return ledger.lock();
}

} // namespace vesk::nightly
