# Each target is one file here, with its seeds in corpus/<target>/.
set(fuzz_targets ber_items snmp_parse_trap snmp_parse recv_stream render_value mib_file pcap_frames oid_file make_format vortd_conf trp_format alert_file code_points shown_text)
# What a target needs beside the library.
set(pcap_frames_sources ${PROJECT_SOURCE_DIR}/tools/wqevents/packet.cpp)
set(shown_text_sources ${PROJECT_SOURCE_DIR}/tools/wqevents/shown_text.cpp
                       ${PROJECT_SOURCE_DIR}/tools/wqevents/trap_lines.cpp
                       ${PROJECT_SOURCE_DIR}/tools/wqevents/utf8.cpp)
