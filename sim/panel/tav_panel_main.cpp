// Placeholder: replaced by the implementation.
int main() { return 1; }
