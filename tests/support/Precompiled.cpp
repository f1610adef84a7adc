// Only carries the headers that all tests have compiled once.
int main() {}
