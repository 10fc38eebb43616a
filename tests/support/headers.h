/// The headers that nearly every test includes, precompiled for all of them.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "WorkerAccess.h"
