// Module `ipe.versioninfo`: the version texts that a program file carries.
//
// create(path) gives an object with one method, info(): a dict of the version strings of a PE file or of the
// package note of an ELF file, empty if the file has none. A file that cannot be read raises the platform
// error "GetFileVersionInfo". `path` is a path value; the file is read at each call.
#pragma once

#include <string>

#include "ipe/object/ipe_moduletype.h"

class IPE_VersionInfo final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    explicit IPE_VersionInfo(const IPE_Object& path);

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

    IPE_Object info();

  private:
    enum Method { Info };
    IPE_Object path_;
    std::string bytes_;
};
