int main() {
    int* volatile pointer = new int(0);
    delete pointer;
    return *pointer;
}
