#include <limits>

int main() {
    volatile int number = std::numeric_limits<int>::max();
    number = number + 1;
}
