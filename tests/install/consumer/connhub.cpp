#include <connhub/connhub.h>

int main()
{
    return 0;
}
