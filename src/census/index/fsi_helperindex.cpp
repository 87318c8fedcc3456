// Opening and building.
//
// Two locks, one inside the other: the named one of the global store, by which threads wait and see the
// builder's progress, and the flock of the note, by which processes exclude each other. A filtered file index
// may open the unfiltered one and the paths index while it is built, never the other way, so the order among
// the named ones is fixed as well.
#include "census/index/fsi_helperindex.h"

#include <unistd.h>

#include <algorithm>
#include <vector>

#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "runtime/epa_shutdown.h"

namespace {

constexpr int WaitSlices = 10;  // of one wait between two looks at the holder's message
constexpr useconds_t WaitSlice = 50'000;

// Names held by this thread: application code that is called by a build and asks for the same index would
// wait for itself.
thread_local std::vector<std::string> heldNames;

// The lock of the global store, taken for a scope. Without a store the flock alone excludes.
class NamedLock {
  public:
    NamedLock(const std::string& name, FSI_Progress& progress)
        : name_(IPE_String(name)), text_(name), store_(IPE_FindGlobalStore()) {
        if (std::find(heldNames.begin(), heldNames.end(), name) != heldNames.end())
            XPK_Raise("RuntimeError", "The index $name is asked for while it is built")
                .string("name", name)
                .raise();
        const bool waited = store_ && take(progress);
        try {
            heldNames.push_back(name);
            if (waited) progress.relay(IPE_String(""));
        } catch (...) {  // scripts may have put something else where messages go
            release();
            throw;
        }
    }
    ~NamedLock() { release(); }
    NamedLock(const NamedLock&) = delete;
    NamedLock& operator=(const NamedLock&) = delete;

  private:
    void release() {
        std::erase(heldNames, text_);
        if (store_) store_->releaseLock(name_);
    }
    // Tells whether somebody else had it.
    bool take(FSI_Progress& progress) {
        bool waited = false;
        for (int slice = 0; store_->tryLock(name_).is<IPE_NoneType>(); ++slice) {
            if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
            if (slice % WaitSlices == 0) {
                IPE_Object entry = store_->lockEntry(name_);
                if (entry.is<IPE_DictType>())
                    if (IPE_Type* message = entry.as<IPE_DictType>()->findText("message"))
                        progress.relay(IPE_Object(message));
            }
            waited = true;
            ::usleep(WaitSlice);
        }
        return waited;
    }

    IPE_Object name_;
    std::string text_;
    IPE_Store* store_;
};

// As the reader opened it, which for a name that is no text is not the name that messages show.
EPA_FileName nameOf(const FSI_Reader& census) {
    if (IPE_Object option = census.option("fsi"); !option.isNull())
        if (EPA_FileName name = EPA_FileNameOf(option); name.text == census.path()) return name;
    return EPA_FileNameOf(IPE_String(census.path()));
}

// Bytes that are not what they were meet many checks on their way, not all of them the store's.
bool tellsDamage(const XPK_Exception& fault) {
    return fault.type() != "SystemExit" && fault.type() != "DevelopmentException" &&
           !dynamic_cast<const XPK_MemoryException*>(&fault);
}

}  // namespace

FSI_HelperIndex::FSI_HelperIndex(FSI_Reader& census, const Kind& kind) : census_(census), kind_(kind) {}

FSI_HelperIndex::~FSI_HelperIndex() {
    if (file_ && file_->file->damage().count > 0) files_->drop();
}

bool FSI_HelperIndex::openStore() {
    try {
        store_.open(files_->data());
        if (store_.location(kind_.table) >= 0) return true;
    } catch (const XPK_Exception& fault) {
        if (!tellsDamage(fault)) throw;
    }
    store_.close();
    return false;
}

void FSI_HelperIndex::openIndex(std::string_view options, bool reusable) {
    store_.close();
    file_ = nullptr;
    files_ = std::make_unique<FSI_IndexFiles>(nameOf(census_), kind_.letter,
                                              FSI_IndexFiles::versionKey() + std::string(options),
                                              kind_.version, census_.store()->file->stamp());
    FSI_Progress progress("msg_helper");
    NamedLock lock(files_->lockName(), progress);
    progress.setLockName(files_->lockName());
    bool open = false;
    while (!open && files_->enter()) {
        open = reusable && files_->isWhole() && openStore();
        if (open || !files_->begin()) continue;
        buildFresh(progress);
        store_.open(files_->data());
        open = built_ = true;
    }
    files_->leave();
    if (!open) files_->refuse();
    file_ = store_.store();
}

void FSI_HelperIndex::buildFresh(FSI_Progress& progress) {
    try {
        SMF_Writer writer;
        writer.open(files_->fresh());
        progress.start(kind_.key, kind_.text, 0);
        build(writer, progress);
        writer.close();
        files_->commit();
    } catch (...) {
        files_->abandon();
        throw;
    }
}

void FSI_HelperIndex::readFailed() {
    try {
        throw;
    } catch (const XPK_Exception& fault) {
        if (!tellsDamage(fault)) throw;
        files_->drop();
        if (fault.type() == "DatabaseError" || fault.type() == "IOError") throw;
        SMF_Fail(SMF_Corruption, "The index is damaged: $damage", store_.name(),
                 {{"damage", fault.message()}});
    }
}

void FSI_HelperIndex::failDamaged() {
    SMF_Fail(SMF_Corruption, "The index is damaged: $damage", store_.name(),
             {{"damage", file_->file->damage().first}});
}

void FSI_RequirePathRow(const FSI_Reader& census, int64_t number, int64_t row) {
    if (number == row) return;
    SMF_Fail(SMF_Corruption, "The path $number stands at row $row of the table Path", census.path(),
             {{"number", std::to_string(number)}, {"row", std::to_string(row)}});
}
