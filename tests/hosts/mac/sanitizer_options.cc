// SPDX-License-Identifier: MIT
// Leak checking for the tests that load GNUstep's Foundation.
//
// GCC's Objective-C runtime allocates its class, method and selector tables
// (and Foundation its class-initialisation state) when a class is first used
// and keeps them until the process ends; the leak checker reports those
// before any test has run, even when the tests are only listed. Only
// allocations made with the runtime library on the stack are suppressed:
// Foundation objects that our code creates are allocated by Foundation from
// our frames, so a string or dictionary that is not released is still
// reported. The shared date formatter is made once and kept for the life of
// the process by design; Foundation's zone and locale state that it creates
// is not reachable by the checker's scan and is suppressed by its creator's
// name. The runtime and Foundation are built without frame pointers, so
// the fast unwinder stops inside them and would hide the runtime's frames
// from the suppression; these tests unwind the slow, exact way instead.
extern "C" char const* __lsan_default_suppressions() {
  return "leak:libobjc.so\nleak:shared_date_formatter\n";
}
extern "C" char const* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
