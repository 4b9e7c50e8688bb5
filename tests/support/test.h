// What every test of the library uses: GoogleTest, the system's calls, the library's test kit.
#ifndef VEXTEST_TEST_H
#define VEXTEST_TEST_H

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/failures.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/seed.h"
#include "support/table.h"
#include "support/temp_dir.h"

#endif
