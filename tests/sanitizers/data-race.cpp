#include <thread>

int counter = 0;

int main() {
    std::thread other([] { counter++; });
    counter++;
    other.join();
}
