# Each target is one file here, with its seeds in corpus/<target>/.
set(fuzz_targets ber_items snmp_parse_trap recv_stream)
