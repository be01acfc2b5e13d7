// Empty: the target that precompiles the headers of the tests needs a source.
int main() {}
