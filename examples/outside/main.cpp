// Against the installed package, as a program of one's own would be.
#include <Dunlin/Util.h>

#include <cstdio>

int main() {
    std::printf("%08x\n", Dunlin::Util::reverse(1));
    return Dunlin::Util::reverse(1) == 0x80000000 ? 0 : 1;
}
