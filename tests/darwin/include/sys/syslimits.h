#pragma once

#include <limits.h>
