#pragma once

enum vtype { VNON, VREG, VDIR };
