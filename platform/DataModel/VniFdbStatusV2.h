#pragma once

#include "DataModel/VniTables.h"

namespace VxlanController {

/// What the controller learned from its switches about one VNI. It stands in a directory under its VNI in
/// decimal.
class VniFdbStatusV2 : public VniTables<258> {
 public:
  VniFdbStatusV2(Orb::Name name, Vxlan::Vni vni) : VniTables(std::move(name), vni) {}
  Orb::TypeDescriptor const& fwkType() const override;
};

}  // namespace VxlanController
