#include <cstdio>

int main()
{
    std::puts("vxdicom");
    return 0;
}
