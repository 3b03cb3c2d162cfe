// The console's own lines: straight to descriptor 2, one write a line, whether the log is on or not.
#pragma once

__attribute__((format(printf, 1, 2))) void Report(const char* format, ...);

#define REPORT(format, ...) Report(format, __func__, __LINE__, ##__VA_ARGS__)
