// SPDX-License-Identifier: MIT
// The low mandatory label, built once for the making of one object.
#pragma once

namespace security {

// Builds the label when made and frees it when it goes. A label that cannot be built is logged
// and leaves no attributes. Systems without labels never have any.
class LowIntegrityLabel {
  public:
    LowIntegrityLabel();
    ~LowIntegrityLabel();
    LowIntegrityLabel(const LowIntegrityLabel&) = delete;
    LowIntegrityLabel& operator=(const LowIntegrityLabel&) = delete;

    // A SECURITY_ATTRIBUTES that lives as long as the label, or null.
    const void* Attributes() const { return attributes_; }

  private:
    void* attributes_ = nullptr;
    void* acl_ = nullptr;
    // Room for a SECURITY_DESCRIPTOR.
    alignas(void*) unsigned char descriptor_[40];
};

}  // namespace security
