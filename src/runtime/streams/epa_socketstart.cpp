// Start-up of the sockets.

#include "runtime/streams/epa_socketstart.h"

#include <string>
#include <vector>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_socket.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/streams/epa_serversocket.h"
#include "runtime/streams/epa_socket.h"
#include "runtime/streams/epa_socketerror.h"

namespace {

EPA_Component component(
    [](bool up, const char*, void*) {
        if (!up) return;
        IPE_GlobalStore().set("ipaddress_list", EPA_ListAddresses());
        IPE_ModuleRegistry::registerNative("ipe.socket", "create", EPA_CreateSocket);
        IPE_ModuleRegistry::registerNative("ipe.serversocket", "create", EPA_CreateServerSocket);
    },
    "EPA_ThreadManager,IPE_Globals", "EPA_Socket");

}  // namespace

IPE_Object EPA_ListAddresses() {
    {
        XPK_ApiScope api("socket");
        if (platform::probeIpv4() != 0) XPK_Raise("RuntimeError", "Unable to open a UDP socket").raise();
    }
    std::vector<platform::InterfaceAddress> interfaces;
    EPA_SocketCall("getifaddrs", [&] { return platform::listInterfaces(interfaces); });
    IPE_Object list = IPE_NewList();
    for (const auto& each : interfaces) {
        std::string text = platform::quadText(each.address);
        if (text == "127.0.0.1" || text == "0.0.0.0") continue;
        list.as<IPE_ListType>()->append(IPE_String(text + "/" + std::to_string(each.prefix)));
    }
    return list;
}
