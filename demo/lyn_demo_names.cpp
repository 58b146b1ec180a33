// Display names of indications and asynchronous responses. Metrics and controls carry theirs in their own tables.
#include "lyn_demo.h"

// Row n names enumerator n.
struct lyn_demo_name_t {
  uint32_t id;
  const char *name;
};

static constexpr lyn_demo_name_t LYN_DEMO_INDS[] = {
    {.id = OX_LYN_IND_INVALID_E, .name = "Invalid Indication"},
    {.id = OX_LYN_IND_MODEM_STATUS_E, .name = "Modem Status"},
    {.id = OX_LYN_IND_REG_STATUS_E, .name = "Registration Status"},
    {.id = OX_LYN_IND_LTE_RSRP_E, .name = "LTE Serving Cell RSRP"},
    {.id = OX_LYN_IND_NR5G_RSRP_E, .name = "NR 5G Serving Cell RSRP"},
    {.id = OX_LYN_IND_LTE_RSRQ_E, .name = "LTE Serving Cell RSRQ"},
    {.id = OX_LYN_IND_NR5G_RSRQ_E, .name = "NR 5G Serving Cell RSRQ"},
    {.id = OX_LYN_IND_LTE_SINR_E, .name = "LTE Serving Cell SINR"},
    {.id = OX_LYN_IND_NR5G_SINR_E, .name = "NR 5G Serving Cell SINR"},
};

static constexpr lyn_demo_name_t LYN_DEMO_ASYNCS[] = {
    {.id = OX_LYN_ASYNC_INVALID_E, .name = "Invalid Async Response"},
    {.id = OX_LYN_ASYNC_LTE_NBR_INFO_E, .name = "LTE Neighbor Info"},
    {.id = OX_LYN_ASYNC_NR5G_NBR_INFO_E, .name = "NR 5G Neighbor Info"},
};

static_assert(std::size(LYN_DEMO_INDS) == LYN_DEMO_IND_NAMES && lyn_demo_in_order(LYN_DEMO_INDS));
static_assert(std::size(LYN_DEMO_ASYNCS) == LYN_DEMO_ASYNC_NAMES && lyn_demo_in_order(LYN_DEMO_ASYNCS));

// Events that are delivered without a subscription have no name of their own: indications 9 to 13, responses 3 and 4.
const char *lyn_demo_ind_name(uint32_t ind) {
  return ind < std::size(LYN_DEMO_INDS) ? LYN_DEMO_INDS[ind].name : "Unknown Indication";
}

const char *lyn_demo_async_name(uint32_t async_resp) {
  return async_resp < std::size(LYN_DEMO_ASYNCS) ? LYN_DEMO_ASYNCS[async_resp].name : "Unknown Async Response";
}
