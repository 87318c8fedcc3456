// Descriptors over modes and POSIX lists.
//
// Both directions go through one small model of a list: the three base permissions and two maps of named
// ones. The mask does not appear in it. Reading applies it, writing computes it anew as the union of what it
// limits, so the permissions in effect survive a round trip though the mask may become narrower.
//
// A named entry may have the same identifier as the owner or the owning group. The first entry with that
// identifier is the base entry, the second the named one; where the base entry would be left out for want of
// permissions it is then written all the same.

#include "platform/pf_security.h"

#include <acl/libacl.h>
#include <sys/acl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <type_traits>

#include "platform/pf_anchor.h"
#include "platform/pf_sid.h"

namespace platform {

namespace {

constexpr unsigned kRead = 4, kWrite = 2, kExecute = 1, kAll = 7;
constexpr char kInheritFlags[] = "OICIIO";
constexpr uint32_t kFileRead = 0x120089, kFileWrite = 0x120116, kFileExecute = 0x1200A0, kFileAll = 0x1F01FF;
constexpr uint32_t kGenericRead = 0x80000000, kGenericWrite = 0x40000000, kGenericExecute = 0x20000000,
                   kGenericAll = 0x10000000;

struct AclModel {
    std::optional<unsigned> owner, group, other;
    std::map<uint32_t, unsigned> users, groups;

    bool named() const { return !users.empty() || !groups.empty(); }
    bool empty() const { return !owner && !group && !other && !named(); }
};

using Acl = std::unique_ptr<std::remove_pointer_t<acl_t>, int (*)(void*)>;

Acl hold(acl_t raw) { return Acl(raw, ::acl_free); }

unsigned permissions(acl_entry_t entry) {
    acl_permset_t set;
    if (::acl_get_permset(entry, &set) != 0) return 0;
    return (::acl_get_perm(set, ACL_READ) == 1 ? kRead : 0) |
           (::acl_get_perm(set, ACL_WRITE) == 1 ? kWrite : 0) |
           (::acl_get_perm(set, ACL_EXECUTE) == 1 ? kExecute : 0);
}

uint32_t qualifier(acl_entry_t entry) {
    std::unique_ptr<void, int (*)(void*)> id(::acl_get_qualifier(entry), ::acl_free);
    return id ? *static_cast<uint32_t*>(id.get()) : UINT32_MAX;
}

AclModel readModel(acl_t acl) {
    AclModel model;
    unsigned mask = kAll;
    acl_entry_t entry;
    for (int at = ACL_FIRST_ENTRY; ::acl_get_entry(acl, at, &entry) == 1; at = ACL_NEXT_ENTRY) {
        acl_tag_t tag = ACL_UNDEFINED_TAG;
        ::acl_get_tag_type(entry, &tag);
        unsigned bits = permissions(entry);
        switch (tag) {
            case ACL_USER_OBJ: model.owner = bits; break;
            case ACL_GROUP_OBJ: model.group = bits; break;
            case ACL_OTHER: model.other = bits; break;
            case ACL_MASK: mask = bits; break;
            case ACL_USER: model.users[qualifier(entry)] = bits; break;
            case ACL_GROUP: model.groups[qualifier(entry)] = bits; break;
            default: break;
        }
    }
    if (model.group) *model.group &= mask;
    for (auto& [id, bits] : model.users) bits &= mask;
    for (auto& [id, bits] : model.groups) bits &= mask;
    return model;
}

int readAccess(const std::string& plain, const struct stat& raw, AclModel& model) {
    Acl acl = hold(::acl_get_file(plain.c_str(), ACL_TYPE_ACCESS));
    if (!acl && errno == EOPNOTSUPP) acl = hold(::acl_from_mode(raw.st_mode));
    if (!acl) return errno;
    model = readModel(acl.get());
    return 0;
}

int readDefault(const std::string& plain, AclModel& model) {
    Acl acl = hold(::acl_get_file(plain.c_str(), ACL_TYPE_DEFAULT));
    if (!acl) return errno == EOPNOTSUPP ? 0 : errno;
    model = readModel(acl.get());
    return 0;
}

// --- to text ---

std::string rightsText(unsigned bits) {
    if (bits == kAll) return "FA";
    if (bits == 0) return "0x0";
    std::string text;
    if (bits & kRead) text += "FR";
    if (bits & kWrite) text += "FW";
    if (bits & kExecute) text += "FX";
    return text;
}

class DaclWriter {
  public:
    void add(const AclModel& model, const char* flags, const std::string& owner, const std::string& group) {
        flags_ = flags;
        bool ownerTwice = false, groupTwice = false;
        for (auto& [uid, bits] : model.users) ownerTwice = ownerTwice || sidOfUser(uid) == owner;
        for (auto& [gid, bits] : model.groups) groupTwice = groupTwice || sidOfGroup(gid) == group;
        // A default list without any permission must still be seen to exist.
        bool bare = !model.named() && (*flags != 0) && !*model.owner && !*model.group && !*model.other;
        base(model.owner, owner, ownerTwice || bare);
        for (auto& [uid, bits] : model.users) entry(bits, sidOfUser(uid));
        base(model.group, group, groupTwice);
        for (auto& [gid, bits] : model.groups) entry(bits, sidOfGroup(gid));
        base(model.other, kSidEveryone, false);
    }
    const std::string& text() const { return text_; }

  private:
    void base(std::optional<unsigned> bits, const std::string& sid, bool always) {
        if (bits.value_or(0) || always) entry(bits.value_or(0), sid);
    }
    void entry(unsigned bits, const std::string& sid) {
        const char* alias = aliasOfSid(sid);
        text_ += std::string("(A;") + flags_ + ";" + rightsText(bits) + ";;;" +
                 (alias ? alias : sid.c_str()) + ")";
    }

    std::string text_ = "D:";
    const char* flags_ = "";
};

// --- from text ---

bool permissionsOf(const std::string& rights, unsigned& bits) {
    uint32_t mask = 0;
    if (!sddlRights(rights, mask)) return false;
    if (mask & kGenericRead) mask |= kFileRead;
    if (mask & kGenericWrite) mask |= kFileWrite;
    if (mask & kGenericExecute) mask |= kFileExecute;
    if (mask & kGenericAll) mask |= kFileAll;
    mask &= ~(kGenericRead | kGenericWrite | kGenericExecute | kGenericAll);
    for (bits = 0; bits <= kAll; ++bits) {
        uint32_t whole = (bits & kRead ? kFileRead : 0) | (bits & kWrite ? kFileWrite : 0) |
                         (bits & kExecute ? kFileExecute : 0);
        if (mask == whole || (bits == kAll && mask == kFileAll)) return true;
    }
    return false;
}

struct Inheritance {
    bool here = true;
    bool below = false;
};

bool inheritanceOf(const std::string& flags, Inheritance& result) {
    bool object = false, container = false, only = false;
    for (size_t i = 0; i < flags.size(); i += 2) {
        std::string pair = flags.substr(i, 2);
        if (pair == "OI") {
            object = true;
        } else if (pair == "CI") {
            container = true;
        } else if (pair == "IO") {
            only = true;
        } else {
            return false;
        }
    }
    result = {!only, object && container};
    return object == container && (object || !only);
}

class DaclReader {
  public:
    explicit DaclReader(const struct stat& raw) : raw_(raw) {}

    // 0 or EOPNOTSUPP.
    int read(const SddlList& list) {
        if (list.flags != "" && list.flags != "P" && list.flags != "PAI" && list.flags != "AI")
            return EOPNOTSUPP;
        for (const SddlEntry& entry : list.entries) {
            unsigned bits = 0;
            Inheritance way;
            bool plain = entry.type == "A" && entry.object.empty() && entry.inheritObject.empty();
            if (!plain || !permissionsOf(entry.rights, bits) || !inheritanceOf(entry.flags, way))
                return EOPNOTSUPP;
            if (way.below && !S_ISDIR(raw_.st_mode)) return EOPNOTSUPP;
            if (way.here && !place(access, entry.trustee, bits, true)) return EOPNOTSUPP;
            if (way.below && !place(inherited, entry.trustee, bits, false)) return EOPNOTSUPP;
        }
        return 0;
    }

    AclModel access, inherited;

  private:
    static bool once(std::optional<unsigned>& slot, unsigned bits) {
        if (slot) return false;
        slot = bits;
        return true;
    }

    bool place(AclModel& model, const std::string& sid, unsigned bits, bool own) {
        uint32_t id = 0;
        if (sid == kSidEveryone) return once(model.other, bits);
        if (!own && sid == kSidCreatorOwner) return once(model.owner, bits);
        if (!own && sid == kSidCreatorGroup) return once(model.group, bits);
        if (userOfSid(sid, id)) {
            if (own && id == raw_.st_uid && once(model.owner, bits)) return true;
            return model.users.emplace(id, bits).second;
        }
        if (!groupOfSid(sid, id)) return false;
        if (own && id == raw_.st_gid && once(model.group, bits)) return true;
        return model.groups.emplace(id, bits).second;
    }

    const struct stat& raw_;
};

// The short loops of libacl calls fail for want of memory alone.
bool addEntry(Acl& acl, acl_tag_t tag, unsigned bits, const uint32_t* id) {
    acl_t raw = acl.get();
    acl_entry_t entry;
    acl_permset_t set;
    if (::acl_create_entry(&raw, &entry) != 0) return false;
    // libacl may move the list while it grows.
    if (raw != acl.get()) {
        (void)acl.release();
        acl.reset(raw);
    }
    if (::acl_set_tag_type(entry, tag) != 0 || ::acl_get_permset(entry, &set) != 0) return false;
    if (bits & kRead) ::acl_add_perm(set, ACL_READ);
    if (bits & kWrite) ::acl_add_perm(set, ACL_WRITE);
    if (bits & kExecute) ::acl_add_perm(set, ACL_EXECUTE);
    return !id || ::acl_set_qualifier(entry, id) == 0;
}

Acl build(const AclModel& model) {
    Acl acl = hold(::acl_init(static_cast<int>(model.users.size() + model.groups.size() + 4)));
    if (!acl) return acl;
    unsigned mask = model.group.value_or(0);
    bool good = addEntry(acl, ACL_USER_OBJ, model.owner.value_or(0), nullptr) &&
                addEntry(acl, ACL_GROUP_OBJ, mask, nullptr) &&
                addEntry(acl, ACL_OTHER, model.other.value_or(0), nullptr);
    for (auto& [uid, bits] : model.users) {
        mask |= bits;
        good = good && addEntry(acl, ACL_USER, bits, &uid);
    }
    for (auto& [gid, bits] : model.groups) {
        mask |= bits;
        good = good && addEntry(acl, ACL_GROUP, bits, &gid);
    }
    if (model.named()) good = good && addEntry(acl, ACL_MASK, mask, nullptr);
    if (!good) acl.reset();
    return acl;
}

int applyAccess(const std::string& plain, const struct stat& raw, const AclModel& model) {
    Acl acl = build(model);
    if (!acl) return errno;
    if (::acl_set_file(plain.c_str(), ACL_TYPE_ACCESS, acl.get()) == 0) return 0;
    if (errno != EOPNOTSUPP || model.named()) return errno;
    mode_t mode = (raw.st_mode & 07000) | model.owner.value_or(0) << 6 | model.group.value_or(0) << 3 |
                  model.other.value_or(0);
    return ::chmod(plain.c_str(), mode) == 0 ? 0 : errno;
}

int applyDefault(const std::string& plain, const AclModel& model) {
    if (model.empty()) {
        return ::acl_delete_def_file(plain.c_str()) == 0 || errno == EOPNOTSUPP ? 0 : errno;
    }
    Acl acl = build(model);
    if (!acl) return errno;
    return ::acl_set_file(plain.c_str(), ACL_TYPE_DEFAULT, acl.get()) == 0 ? 0 : errno;
}

int applyDacl(const std::string& plain, const struct stat& raw, const SddlList& list) {
    DaclReader reader(raw);
    if (int error = reader.read(list)) return error;
    AclModel before;
    if (S_ISDIR(raw.st_mode)) {
        if (int error = readDefault(plain, before)) return error;
        if (int error = applyDefault(plain, reader.inherited)) return error;
    }
    int error = applyAccess(plain, raw, reader.access);
    // Half a change is none: the default list goes back, and the first failure is the one to tell.
    if (error && S_ISDIR(raw.st_mode)) applyDefault(plain, before);
    return error;
}

}  // namespace

int getSecurity(const std::string& path, SecurityPart part, std::string& sddl) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    std::string plain = anchor.plain();
    struct stat raw;
    if (::stat(plain.c_str(), &raw) != 0) return errno;
    std::string owner = sidOfUser(raw.st_uid), group = sidOfGroup(raw.st_gid);
    if (part == kSecurityOwner) {
        sddl = "O:" + owner;
    } else if (part == kSecurityGroup) {
        sddl = "G:" + group;
    } else if (part == kSecurityDacl) {
        AclModel access, inherited;
        if (int error = readAccess(plain, raw, access)) return error;
        DaclWriter writer;
        writer.add(access, "", owner, group);
        if (S_ISDIR(raw.st_mode)) {
            if (int error = readDefault(plain, inherited)) return error;
            if (!inherited.empty()) writer.add(inherited, kInheritFlags, kSidCreatorOwner, kSidCreatorGroup);
        }
        sddl = writer.text();
    } else {
        return EOPNOTSUPP;
    }
    return 0;
}

int setSecurity(const std::string& path, SecurityPart part, const Sddl& sddl) {
    PathAnchor anchor(path);
    if (anchor.error()) return anchor.error();
    std::string plain = anchor.plain();
    struct stat raw;
    if (::stat(plain.c_str(), &raw) != 0) return errno;
    uint32_t id = 0;
    if (part == kSecurityOwner) {
        if (!sddl.owner) return EINVAL;
        if (!userOfSid(*sddl.owner, id)) return EOPNOTSUPP;
        return ::chown(plain.c_str(), id, static_cast<gid_t>(-1)) == 0 ? 0 : errno;
    }
    if (part == kSecurityGroup) {
        if (!sddl.group) return EINVAL;
        if (!groupOfSid(*sddl.group, id)) return EOPNOTSUPP;
        return ::chown(plain.c_str(), static_cast<uid_t>(-1), id) == 0 ? 0 : errno;
    }
    if (part != kSecurityDacl) return EOPNOTSUPP;
    return sddl.dacl ? applyDacl(plain, raw, *sddl.dacl) : EINVAL;
}

}  // namespace platform
