// Gives the unit tests the host behaviour of path mapping and the log mirror
// on the target build too (see tav_platform.cpp).
extern "C" int tav_platform_test_hooks(void) {
    return 1;
}
