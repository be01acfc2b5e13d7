// The target that precompiles the headers of the tests needs a source. The array gets a stack protector, which
// tests/checks/check_hardening expects in every program.
int main() {
    volatile char array[16] = {};
    return array[0];
}
