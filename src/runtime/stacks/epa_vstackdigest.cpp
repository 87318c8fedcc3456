// Stacks of sets.
#include "runtime/stacks/epa_vstackdigest.h"

#include "ipe/values/ipe_containers.h"

EPA_VStackDigest::EPA_VStackDigest() : sha1_(EPA_Digest::Kind::Sha1) { levels_[0] = IPE_NewList(); }

void EPA_VStackDigest::add(const IPE_Object& key, const IPE_Object& value) {
    levels_[static_cast<size_t>(top_)].as<IPE_ListType>()->append(IPE_TupleOf({key, value}));
}

std::string EPA_VStackDigest::digest() {
    auto* pairs = levels_[static_cast<size_t>(top_)].as<IPE_ListType>();
    if (pairs->count() == 0) return {};
    IPE_Object sorted = IPE_NewList();
    sorted.as<IPE_ListType>()->items() = pairs->items();
    sorted.as<IPE_ListType>()->sort(false);
    sha1_.update(IPE_Object_Text(sorted));
    return EPA_HexText(sha1_.finish(), false).substr(32);
}

void EPA_VStackDigest::push() {
    XPK_Assert(top_ + 1 < Levels);
    levels_[static_cast<size_t>(top_ + 1)] = IPE_NewList();
    ++top_;
}

void EPA_VStackDigest::pop() {
    XPK_Assert(top_ > 0);
    levels_[static_cast<size_t>(top_)] = nullptr;
    --top_;
}
