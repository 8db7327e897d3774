/*
 * The layout of every record of the boundary and the value of every constant, as programs were
 * compiled with them on a host with 64-bit pointers. Included by a source in C and one in C++.
 */
#include <stddef.h>

#include <wqevents.h>

#ifdef __cplusplus
#define HOLDS(name, condition) static_assert(condition, #name)
#else
#define HOLDS(name, condition) typedef char name[(condition) ? 1 : -1]
#endif
#define SIZE(record, bytes) HOLDS(size_of_##record, sizeof(record) == (bytes))
#define FIELD(record, field, bytes) \
    HOLDS(offset_of_##field##_in_##record, offsetof(record, field) == (bytes))
#define PART(record, whole, part, bytes) \
    HOLDS(offset_of_##whole##_##part##_in_##record, offsetof(record, whole.part) == (bytes))
#define VALUE(constant, number) HOLDS(value_of_##constant, (constant) == (number))

HOLDS(size_of_a_pointer, sizeof(void*) == 8);
HOLDS(size_of_a_long, sizeof(long) == 8);

SIZE(SnmpVarBindEMS, 1548);
FIELD(SnmpVarBindEMS, oid, 0);
FIELD(SnmpVarBindEMS, oid_length, 512);
FIELD(SnmpVarBindEMS, type, 516);
FIELD(SnmpVarBindEMS, val, 520);
PART(SnmpVarBindEMS, val, integer, 520);
PART(SnmpVarBindEMS, val, string, 520);
PART(SnmpVarBindEMS, val, objid, 520);
FIELD(SnmpVarBindEMS, val_len, 1544);

SIZE(snmp_trap_infoEMS, 680);
FIELD(snmp_trap_infoEMS, community, 0);
FIELD(snmp_trap_infoEMS, clen, 128);
FIELD(snmp_trap_infoEMS, enterprise, 132);
FIELD(snmp_trap_infoEMS, elen, 644);
FIELD(snmp_trap_infoEMS, agent, 648);
FIELD(snmp_trap_infoEMS, time, 652);
FIELD(snmp_trap_infoEMS, gen, 656);
FIELD(snmp_trap_infoEMS, specific, 660);
FIELD(snmp_trap_infoEMS, vars, 664);
FIELD(snmp_trap_infoEMS, maxvars, 668);
FIELD(snmp_trap_infoEMS, status, 672);
FIELD(snmp_trap_infoEMS, target, 676);

SIZE(event_infoEMS, 32);
FIELD(event_infoEMS, sd, 0);
FIELD(event_infoEMS, trans, 4);
FIELD(event_infoEMS, source, 8);
FIELD(event_infoEMS, agent, 12);
FIELD(event_infoEMS, manager, 16);
FIELD(event_infoEMS, time, 20);
FIELD(event_infoEMS, status, 24);
FIELD(event_infoEMS, target, 28);

SIZE(trap_headerEMS, 24);
FIELD(trap_headerEMS, len, 0);
FIELD(trap_headerEMS, src, 4);
FIELD(trap_headerEMS, pid, 8);
FIELD(trap_headerEMS, time, 12);
FIELD(trap_headerEMS, status, 16);
FIELD(trap_headerEMS, target, 20);

SIZE(snmp_info, 156);
FIELD(snmp_info, community, 0);
FIELD(snmp_info, clen, 128);
FIELD(snmp_info, command, 132);
FIELD(snmp_info, reqid, 136);
FIELD(snmp_info, errstat, 140);
FIELD(snmp_info, errindex, 144);
FIELD(snmp_info, vars, 148);
FIELD(snmp_info, maxvars, 152);

SIZE(snmp_call_info, 336);
FIELD(snmp_call_info, sd, 0);
FIELD(snmp_call_info, addr, 4);
FIELD(snmp_call_info, request, 8);
FIELD(snmp_call_info, response, 164);
FIELD(snmp_call_info, retries, 320);
FIELD(snmp_call_info, timeout, 324);
FIELD(snmp_call_info, save_errno, 328);
FIELD(snmp_call_info, is_connected, 332);

SIZE(trap_arg, 8);
FIELD(trap_arg, arg_num, 0);
FIELD(trap_arg, arg_type, 4);

SIZE(trap_element, 664);
FIELD(trap_element, rawstring, 0);
FIELD(trap_element, format, 8);
FIELD(trap_element, num_args, 16);
FIELD(trap_element, arg_list, 20);

SIZE(prxSlotMapping, 24);
FIELD(prxSlotMapping, slotCnt, 0);
FIELD(prxSlotMapping, slotName, 8);
FIELD(prxSlotMapping, slotVal, 16);

SIZE(trap_record, 872);
FIELD(trap_record, next, 0);
FIELD(trap_record, name, 8);
FIELD(trap_record, nodeCnt, 48);
FIELD(trap_record, nodeList, 56);
FIELD(trap_record, trapDescription, 64);
FIELD(trap_record, generic_trap, 72);
FIELD(trap_record, specific_trap, 76);
FIELD(trap_record, category_name, 80);
FIELD(trap_record, category_number, 88);
FIELD(trap_record, source, 92);
FIELD(trap_record, severity, 96);
FIELD(trap_record, status, 100);
FIELD(trap_record, forward, 104);
FIELD(trap_record, description, 112);
FIELD(trap_record, exec_prog, 776);
FIELD(trap_record, execargs_ptr, 784);
FIELD(trap_record, exec_display_prog, 792);
FIELD(trap_record, exec_display_args_ptr, 800);
FIELD(trap_record, alert_record_name, 808);
FIELD(trap_record, alert_element, 848);
FIELD(trap_record, prxClassName, 856);
FIELD(trap_record, slotMap, 864);

SIZE(enterprise_info, 904);
FIELD(enterprise_info, next, 0);
FIELD(enterprise_info, enterprise_name, 8);
FIELD(enterprise_info, oid_len, 16);
FIELD(enterprise_info, enterprise_oid, 24);
FIELD(enterprise_info, trap_rec_list_head, 32);

SIZE(actionCmd, 32);
FIELD(actionCmd, name, 0);
FIELD(actionCmd, description, 8);
FIELD(actionCmd, waitTime, 16);
FIELD(actionCmd, cmd, 24);

SIZE(detailed_data_record, 16);
FIELD(detailed_data_record, dataid, 0);
FIELD(detailed_data_record, dd_args, 8);

SIZE(alert_record, 40);
FIELD(alert_record, next, 0);
FIELD(alert_record, subvector, 8);
FIELD(alert_record, num_codepoints, 12);
FIELD(alert_record, codepoints, 16);
FIELD(alert_record, type, 24);
FIELD(alert_record, num_detaileddata, 28);
FIELD(alert_record, detailed_data, 32);

SIZE(cp_entry, 16);
FIELD(cp_entry, ce_alertid, 0);
FIELD(cp_entry, ce_set, 2);
FIELD(cp_entry, ce_u, 8);
PART(cp_entry, ce_u, ce_offset, 8);
PART(cp_entry, ce_u, _ce_text, 8);

SIZE(oiddata, 64);
FIELD(oiddata, mapping_str, 0);

SIZE(oidnode, 32);
FIELD(oidnode, child, 0);
FIELD(oidnode, sib, 8);
FIELD(oidnode, val, 16);
FIELD(oidnode, data, 24);

SIZE(local_map, 720);
FIELD(local_map, next, 0);
FIELD(local_map, mapping_str, 8);
FIELD(local_map, oidstring, 72);
FIELD(local_map, ent_oid, 200);
FIELD(local_map, ent_oid_len, 712);

SIZE(rtrap_user, 4);
SIZE(s_generic_trap, 4);
SIZE(s_msg_type, 4);
SIZE(substitute_arg, 4);

VALUE(ZLEEVENT_USER, 0);
VALUE(VORTD_USER, 1);
VALUE(OBU_USER, 2);
VALUE(KMEVENTS_USER, 3);
VALUE(PRX_USER, 4);
VALUE(COLD_START, 0);
VALUE(WARM_START, 1);
VALUE(LINK_DOWN, 2);
VALUE(LINK_UP, 3);
VALUE(AUTHENTICATION_FAILURE, 4);
VALUE(EGP_NEIGHBOR_LOSS, 5);
VALUE(ENTERPRISE_SPECIFIC, 6);
VALUE(SNMP_GET_REQ, 160);
VALUE(SNMP_GET_NEXT_REQ, 161);
VALUE(SNMP_GET_RSP, 162);
VALUE(SNMP_SET_REQ, 163);
VALUE(SNMP_TRAP, 164);
VALUE(ARG_A, 0);
VALUE(ARG_a, 1);
VALUE(ARG_C, 2);
VALUE(ARG_E, 3);
VALUE(ARG_e, 4);
VALUE(ARG_G, 5);
VALUE(ARG_S, 6);
VALUE(ARG_SX, 7);
VALUE(ARG_CONTACT, 8);
VALUE(ARG_LOCATION, 9);
VALUE(ARG_DESC, 10);
VALUE(ARG_T, 11);
VALUE(ARG_STAR, 12);
VALUE(ARG_NUM, 13);
VALUE(ARG_NUM_DEF, 14);
VALUE(ARG_NUM_PLUS, 15);
VALUE(ARG_NUM_EQ, 16);
VALUE(ARG_NUM_I, 17);
VALUE(ARG_NUM_i, 18);
VALUE(ARG_NUM_t, 19);
VALUE(ARG_POUND, 20);
VALUE(ARG_NUM_L, 21);
VALUE(ARG_NUM_ZYN, 22);
VALUE(EMS_OID_MAX, 128);
VALUE(EMS_STRING_MAX, 1024);
VALUE(EMS_COMMUNITY_MAX, 128);
VALUE(EMS_TRAP_MAX, 8192);
VALUE(EMS_HEADER_LEN, 24);
VALUE(EMS_CATEGORIES_MAX, 64);
VALUE(EMS_NAME_MAX, 40);
VALUE(EMS_ARGS_MAX, 80);
VALUE(ASN_INTEGER09, 0x02);
VALUE(ASN_OCTETSTR09, 0x04);
VALUE(ASN_NULL09, 0x05);
VALUE(ASN_OBJID09, 0x06);
VALUE(ASN_UINT09, 0x07);
VALUE(ASN_SEQUENCE09, 0x30);
VALUE(ASN_IPADDR09, 0x40);
VALUE(ASN_COUNTER09, 0x41);
VALUE(ASN_GAUGE09, 0x42);
VALUE(ASN_TIMETICKS09, 0x43);
VALUE(ASN_OPAQUE09, 0x44);
