// The component EPA_Socket: the modules `ipe.socket` and `ipe.serversocket`, and the machine's addresses.
#pragma once

#include "ipe/object/ipe_type.h"

// New list of the machine's addresses as texts "10.0.0.1/24", in the order of its interfaces, without
// 127.0.0.1 and 0.0.0.0. The component stores it as the global `ipaddress_list` when it starts. RuntimeError
// "Unable to open a UDP socket" on a machine without IPv4.
IPE_Object EPA_ListAddresses();
