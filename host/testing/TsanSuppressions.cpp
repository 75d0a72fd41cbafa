// Linked into every test executable and every tool (a TSan build reads it at
// start-up).
// Debian's libutils is not built with ThreadSanitizer, so the acquire/release
// pair inside RefBase's reference counting is invisible to it: an object
// destroyed by the thread that drops the last reference looks as if it raced
// with every earlier use on other threads.  Those reports are silenced here;
// AddressSanitizer still catches a real use after the last reference.
extern "C" const char *__tsan_default_suppressions() {
    return "race:android::RefBase::decStrong\n"
           "race:android::RefBase::weakref_type::decWeak\n";
}
