/* SPDX-License-Identifier: Apache-2.0 */
// Option 9: one control of the module, its parameters asked for first. The controls are a table: display name, what to
// ask, what to say when the questions were abandoned and when the control was carried out.
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>

#include "lyn_demo.h"
#include "lyn_demo_prompt.h"

static constexpr const char *LYN_DEMO_SCS_MENU = "\n1- 15 KHz \n2- 30 KHz \n3- 60 KHz \n4- 120 KHz \n5- 240 KHz";

// Parameter blocks of one option 9.
struct lyn_demo_set_blocks_t {
  ox_lyn_lte_cell_lock_t lte_lock;
  ox_lyn_nr5g_cell_lock_t nr5g_lock;
  ox_lyn_pps_config_t pps_config;
  ox_lyn_pps_change_status_t pps_change;
  ox_lyn_install_mode_t install;
};

// One value of the i-th entry of a list, counted from 0.
static void lyn_demo_announce_entry(const char *what, int i) {
  printf("Please Enter the %s value for list-%d\n", what, i + 1);
}

static int64_t lyn_demo_ask_entry(const char *what, int i) {
  int64_t number = 0;
  lyn_demo_announce_entry(what, i);
  lyn_demo_read_number(&number);
  return number;
}

static bool lyn_demo_ask_lte_lock(ox_lyn_lte_cell_lock_t *lock) {
  int64_t count = 0;
  if (!lyn_demo_ask_count("Please Enter the Cell identity length ", OX_LYN_LTE_LOCK_LEN, &count)) {
    return false;
  }
  lock->count = static_cast<uint8_t>(count);
  for (int i = 0; i < lock->count; ++i) {
    lock->cells[i].pci = static_cast<uint16_t>(lyn_demo_ask_entry("pci", i));
    lock->cells[i].freq = static_cast<uint16_t>(lyn_demo_ask_entry("freq", i));
  }
  lock->enforce = static_cast<uint8_t>(lyn_demo_ask_number("Please Enter enforce value (Eg: 0 or 1)"));
  return true;
}

static constexpr lyn_demo_question_t lyn_demo_nr5g_cell_questions[] = {
    {.lead = " Please Enter the Cell identity types",
     .text = " Enter the PCI cell number",
     LYN_DEMO_FIELD(ox_lyn_nr5g_cell_lock_t, pci)},
    {.lead = " Enter the Sub carrier  value ", .text = LYN_DEMO_SCS_MENU, LYN_DEMO_FIELD(ox_lyn_nr5g_cell_lock_t, scs)},
    {.text = "Please Enter the arfcn value", LYN_DEMO_FIELD(ox_lyn_nr5g_cell_lock_t, arfcn)},
};

// One mask of eight can be given; a choice outside 1 to 8 gives none.
static void lyn_demo_ask_band_mask(ox_lyn_nr5g_cell_lock_t *lock) {
  memset(lock->band_mask, 0, sizeof lock->band_mask);
  puts("please Select the  corresponding operating band from the list");
  const int32_t choice = static_cast<int32_t>(
      lyn_demo_ask_number("\n1- bits_1_64 \n2- bits_65_128 \n3- bits_129_192 \n4- bits_193_256 \n5- bits_257_320 "
                          "\n6- bits_321_384 \n7- bits_385_448 \n8- bits_449_512"));
  if (choice < 1 || choice > static_cast<int32_t>(std::size(lock->band_mask))) {
    return;
  }
  // The seventh question alone ends with a blank, deliberately.
  lock->band_mask[choice - 1] = static_cast<uint64_t>(lyn_demo_ask_number(
      choice == 7 ? "Please enter the operating band value " : "Please enter the operating band value"));
}

static bool lyn_demo_ask_arfcn_list(ox_lyn_nr5g_cell_lock_t *lock) {
  int64_t count = 0;
  if (!lyn_demo_ask_count("Please Enter the arfcn list length (Eg: 1,2)", OX_LYN_NR5G_LOCK_LEN, &count)) {
    return false;
  }
  lock->arfcn_list_len = static_cast<uint32_t>(count);
  for (int i = 0; i < count; ++i) {
    lock->arfcn_list[i].arfcn = static_cast<int32_t>(lyn_demo_ask_entry("arfcn", i));
    lyn_demo_announce_entry("Sub carrier", i);
    lock->arfcn_list[i].scs = static_cast<int32_t>(lyn_demo_ask_number(LYN_DEMO_SCS_MENU));
  }
  return true;
}

static bool lyn_demo_ask_nr5g_lock(ox_lyn_nr5g_cell_lock_t *lock) {
  lock->lock_type =
      static_cast<uint32_t>(lyn_demo_ask_number("Please Enter the Cell Lock type 1- pci,2- arfcn, 3- unlock"));
  if (lock->lock_type == OX_LYN_LOCK_CELL_E) {
    lyn_demo_ask_all(lyn_demo_nr5g_cell_questions, lock);
    lyn_demo_ask_band_mask(lock);
  }
  return lock->lock_type != OX_LYN_LOCK_ARFCN_LIST_E || lyn_demo_ask_arfcn_list(lock);
}

static constexpr lyn_demo_question_t lyn_demo_pps_config_questions[] = {
    {.text = "Please Enter the current panel position index ", LYN_DEMO_FIELD(ox_lyn_pps_config_t, position_index)},
    {.text = "Do you want to enable the pps mode 1 - yes/0 - No ",
     LYN_DEMO_FIELD(ox_lyn_pps_config_t, pps_mode_enabled)},
};

static constexpr lyn_demo_question_t lyn_demo_pps_freq_questions[] = {
    {.text = "Please Enter is pps  nr5g band freq (250 to 290) ", LYN_DEMO_FIELD(ox_lyn_nr5g_freq_t, band)},
    {.text = "Please Enter is pps  nr5g earfcn freq ", LYN_DEMO_FIELD(ox_lyn_nr5g_freq_t, arfcn)},
    {.text = "Please Enter is pps nr5g subcarrier space freq -(1 to 5)", LYN_DEMO_FIELD(ox_lyn_nr5g_freq_t, scs)},
};

static bool lyn_demo_ask_pps_config(ox_lyn_pps_config_t *config) {
  int64_t count = 0;
  lyn_demo_ask_all(lyn_demo_pps_config_questions, config);
  const int64_t with_freqs = lyn_demo_ask_number("Do you want to enable pps with freq information 1 -yes/ 0 - no ");
  if (static_cast<int32_t>(with_freqs) == 0) {
    puts("User Requested with pps mode only ");
    return true;
  }
  if (!lyn_demo_ask_count("Please Enter the pps freq length ", OX_LYN_FREQ_LEN, &count)) {
    return false;
  }
  config->freq_count = static_cast<uint32_t>(count);
  for (int i = 0; i < count; ++i) {
    lyn_demo_ask_all(lyn_demo_pps_freq_questions, &config->freqs[i]);
  }
  return count != 0;
}

static constexpr lyn_demo_question_t lyn_demo_pps_change_questions[] = {
    {.text = "Please Enter the is panel position changed 1 - yes/ 0 - no ",
     LYN_DEMO_FIELD(ox_lyn_pps_change_status_t, position_changed)},
    {.text = "Please Enter panel position index  ", LYN_DEMO_FIELD(ox_lyn_pps_change_status_t, position_index)},
    {.text = "Please Enter pps mode \n0 - Invalid \n1 - start \n2 - measurement",
     LYN_DEMO_FIELD(ox_lyn_pps_change_status_t, pps_mode)},
};

static bool lyn_demo_ask_pps_change(ox_lyn_pps_change_status_t *change) {
  lyn_demo_ask_all(lyn_demo_pps_change_questions, change);
  return change->pps_mode != OX_LYN_PPS_MODE_INVALID_E;
}

static constexpr lyn_demo_question_t lyn_demo_install_freq_questions[] = {
    {.text = "Please Enter is nr5g band freq (250 to 290) ", LYN_DEMO_FIELD(ox_lyn_nr5g_freq_t, band)},
    {.text = "Please Enter nr5g earfcn freq ", .same_line = true, LYN_DEMO_FIELD(ox_lyn_nr5g_freq_t, arfcn)},
    {.text = "Please Enter nr5g subcarrier space freq -(1 to 5)", LYN_DEMO_FIELD(ox_lyn_nr5g_freq_t, scs)},
};

// Unlike other counts this one is judged after it was cut to its field: 65537 is 1.
static bool lyn_demo_ask_install(ox_lyn_install_mode_t *install) {
  install->mode = static_cast<uint32_t>(lyn_demo_ask_number("Please Request the install mode status 1- start/2-stop "));
  if (install->mode != OX_LYN_INSTALL_MODE_START_E) {
    return install->mode != 0;
  }
  install->freq_count = static_cast<uint16_t>(lyn_demo_ask_number("Please Enter the freq length "));
  if (install->freq_count > OX_LYN_FREQ_LEN) {
    puts("Please Enter the frequncy length in the range(1-16) ");
    return false;
  }
  uint32_t last_scs = 0;
  for (int i = 0; i < install->freq_count; ++i) {
    lyn_demo_ask_all(lyn_demo_install_freq_questions, &install->freqs[i]);
    last_scs = install->freqs[i].scs;
  }
  return last_scs != OX_LYN_SCS_UNKNOWN_E;  // no entry, or a last spacing of 0: refused here deliberately
}

static bool lyn_demo_ask_deprioritize(lyn_demo_set_blocks_t *, ox_lyn_dm_ctrl_info_t *ctrl) {
  int64_t number = 0;
  puts("Enabling deprioritize_nr5G will switch between LTE and NR5G");
  puts("Do you want to enable deprioritize_nr5G (1- yes / 0- No)");
  lyn_demo_read_number(&number, LYN_DEMO_YES_NO_LEN);
  ctrl->value.u8 = static_cast<int32_t>(number) != 0 ? 1 : 0;
  return true;
}

// Fill one block by its prompt sequence and hand it over.
template <auto Block, auto Ask>
static bool lyn_demo_ask_block(lyn_demo_set_blocks_t *blocks, ox_lyn_dm_ctrl_info_t *ctrl) {
  if (!lyn_demo_have_record(blocks)) {
    return false;
  }
  ctrl->value.ptr = &(blocks->*Block);
  return Ask(&(blocks->*Block));
}

// One control. Row n is control n.
struct lyn_demo_control_t {
  uint32_t id;
  const char *name;
  bool (*ask)(lyn_demo_set_blocks_t *blocks, ox_lyn_dm_ctrl_info_t *ctrl) = nullptr;  // false: abandoned
  const char *abandoned = nullptr;
  const char *done[2] = {nullptr, nullptr};
};

static constexpr lyn_demo_control_t lyn_demo_control_rows[] = {
    {.id = OX_LYN_SET_INVALID_E, .name = "Invalid Request"},
    {.id = OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E, .name = "Gps Single shot stop"},
    {.id = OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E, .name = "Gps Batching stop"},
    {.id = OX_LYN_SET_LTE_CELL_LOCK_LIST_E,
     .name = "SET LTE Cell Lock List",
     .ask = lyn_demo_ask_block<&lyn_demo_set_blocks_t::lte_lock, lyn_demo_ask_lte_lock>,
     .abandoned = "failed to Configure NR5G cell lock list info",  // NR5G, deliberately, on the LTE control
     .done = {"Cell Lock list Configuration success"}},
    {.id = OX_LYN_SET_NR5G_CELL_LOCK_LIST_E,
     .name = "SET NR 5G Cell Lock List",
     .ask = lyn_demo_ask_block<&lyn_demo_set_blocks_t::nr5g_lock, lyn_demo_ask_nr5g_lock>,
     .abandoned = "failed to Set Cell lock list configuration",
     .done = {"Cell Lock list Configuration success"}},
    {.id = OX_LYN_SET_NR5G_DEPRIORITIZE_E,
     .name = "SET NR5G De_Prioritize Req",
     .ask = lyn_demo_ask_deprioritize,
     .done = {"De_prioritization configured successfully."}},
    {.id = OX_LYN_SET_MMW_PPS_CONFIG_E,
     .name = "SET mmW PPS config Req",
     .ask = lyn_demo_ask_block<&lyn_demo_set_blocks_t::pps_config, lyn_demo_ask_pps_config>,
     .abandoned = "failed to Set mmw pps configuration",
     .done = {"mmw metric pps config req is success", "Panel position mode started"}},
    {.id = OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E,
     .name = "SET mmW PPS change status Req",
     .ask = lyn_demo_ask_block<&lyn_demo_set_blocks_t::pps_change, lyn_demo_ask_pps_change>,
     .abandoned = "failed to Set pps change status ",
     .done = {"mmw metric pps change status success"}},
    {.id = OX_LYN_SET_INSTALL_MODE_E,
     .name = "SET LYN Install mode",
     .ask = lyn_demo_ask_block<&lyn_demo_set_blocks_t::install, lyn_demo_ask_install>,
     .abandoned = "failed to Set install mode configuration",
     .done = {"Install mode config req is success"}},
};

static_assert(std::size(lyn_demo_control_rows) == OX_LYN_SET_COUNT && lyn_demo_in_order(lyn_demo_control_rows));

// The row of a control; of the invalid request for a number that is none.
static const lyn_demo_control_t &lyn_demo_control_of(int64_t control) {
  return lyn_demo_control_rows[control > 0 && control < OX_LYN_SET_COUNT ? control : 0];
}

const char *lyn_demo_control_name(uint32_t control) {
  return lyn_demo_control_of(control).name;
}

int32_t lyn_demo_set_info(const int32_t *options, uint32_t count) {
  lyn_demo_set_blocks_t blocks = {};
  ox_lyn_dm_ctrl_info_t ctrl = {};
  puts("LYN DEMO APP : Setting metric information.");
  if (count < 2) {
    puts("LYN DEMO APP : Setting LTE/5G/GPS information failed - invalid options passed.");
    return 0;
  }
  const lyn_demo_control_t &control = lyn_demo_control_of(options[1]);
  printf("LYN DEMO APP : Setting LTE/NR5G GPS [%s] metric information.\n", control.name);
  ctrl.record_type = OX_LYN_RECORD_GET_E;
  ctrl.control = control.id;
  if (control.ask != nullptr && !control.ask(&blocks, &ctrl)) {
    puts(control.abandoned);
    return -1;
  }
  const int32_t status = ox_lyn_set_info(lyn_demo_hndl, &ctrl);
  if (status != OX_LYN_SUCCESS) {
    printf("LYN DEMO APP : Setting LTE/NR5G/GPS [%s] metric information failed with status[%d].\n", control.name,
           status);
    return status;
  }
  const lyn_demo_control_t &answered = lyn_demo_control_of(ctrl.control);
  printf("LYN DEMO APP : [%s] \n", answered.name);
  for (const char *text : answered.done) {
    if (text != nullptr) {
      puts(text);
    }
  }
  return 0;
}
