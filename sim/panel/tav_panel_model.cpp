// Placeholder: replaced by the implementation.
#include "tav_panel_model.h"
namespace tavpanel {
PanelModel::PanelModel() {}
void PanelModel::feed(const uint8_t*, size_t) {}
void PanelModel::apply(const std::vector<uint8_t>&) {}
std::vector<uint8_t> key_frame(int, uint8_t) { return {}; }
std::vector<uint8_t> mask_frame(uint32_t, uint8_t) { return {}; }
std::vector<uint8_t> release_frame(uint8_t) { return {}; }
std::vector<uint8_t> version_frame(uint8_t, uint8_t, uint8_t, uint8_t, uint8_t) { return {}; }
std::string hex(const std::vector<uint8_t>&) { return {}; }
} // namespace tavpanel
