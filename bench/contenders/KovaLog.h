#ifndef BENCH_KOVA_LOG_H
#define BENCH_KOVA_LOG_H

/// Switches the library's log off, or with KOVA_BENCH_TRACE in the environment everything on. The
/// lines are then formatted as for a file and thrown away, so that no disk is measured.
void setUpLog();

#endif
