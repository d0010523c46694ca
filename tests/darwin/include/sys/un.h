#pragma once

#include <bits/sockaddr.h>

struct sockaddr_un {
    sa_family_t sun_family;
    char sun_path[104];
};
