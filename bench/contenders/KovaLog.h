#ifndef BENCH_KOVA_LOG_H
#define BENCH_KOVA_LOG_H

/// Turns the library's log off. With KOVA_BENCH_TRACE in the environment it turns all levels on and
/// writes the formatted lines to /dev/null, so that no disk is measured.
void setUpLog();

#endif
