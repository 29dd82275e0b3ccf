#include "viewmodel/outputedidviewmodel.h"

namespace Model {

OutputEDIDViewModel::OutputEDIDViewModel()
{
    m_name = "outputedidviewmodel";
}

OutputEDIDViewModel::~OutputEDIDViewModel() = default;

int OutputEDIDViewModel::onInit()
{
    // The message table grows with the handlers.
    return 0;
}

} // namespace Model
