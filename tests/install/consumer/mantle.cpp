#include <mantle/mantle.h>

int main()
{
    return mantle::CMNTimeValue(0, 1500000).GetSec() == 1 ? 0 : 1;
}
