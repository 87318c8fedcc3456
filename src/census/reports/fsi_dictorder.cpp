// Groups are summed in plain arrays; only their order is that of a dictionary, so one is made of the keys.
#include "census/reports/fsi_dictorder.h"

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"

std::vector<uint32_t> FSI_DictOrder(const std::vector<IPE_Object>& keys) {
    IPE_Object object = IPE_NewDict();
    IPE_DictType& dictionary = *object.as<IPE_DictType>();
    for (size_t i = 0; i < keys.size(); ++i) dictionary.set(keys[i], IPE_Int(static_cast<int64_t>(i)));
    std::vector<uint32_t> order;
    order.reserve(keys.size());
    for (uint32_t slot = 0; slot < dictionary.slots(); ++slot)
        if (dictionary.keyAt(slot))
            order.push_back(static_cast<uint32_t>(dictionary.valueAt(slot)->__int__()));
    return order;
}
