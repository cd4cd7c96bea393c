/* SPDX-License-Identifier: MIT */
/* Stands in for snmpd: an agent that writes down its arguments and runs until it is told to stop. */
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/library/winservice.h>

char *app_name_long = "Net-SNMP Agent";
static HANDLE stop;

static int agent(int argc, char **argv) {
    FILE *file = fopen("/tmp/net-snmp.arguments", "w");
    for (int i = 1; file != NULL && i < argc; ++i) {
        fprintf(file, "%s\n", argv[i]);
    }
    if (file != NULL) fclose(file);
    WaitForSingleObject(stop, INFINITE);
    return 0;
}

static void stopAgent(void) { SetEvent(stop); }

int main(int argc, char **argv) {
    int quiet = 0;
    InputParams arguments = {(DWORD)argc, argv};
    stop = CreateEvent(NULL, TRUE, FALSE, NULL);
    switch (ParseCmdLineForServiceOption(argc, argv, &quiet)) {
    case REGISTER_SERVICE:
        return RegisterService(app_name_long, app_name_long, "SNMPv2c / SNMPv3 command responder", &arguments, quiet);
    case UN_REGISTER_SERVICE: return UnregisterService(app_name_long, quiet);
    case RUN_AS_SERVICE: RegisterStopFunction(stopAgent); return RunAsService(agent) ? 0 : 1;
    default: return agent(argc, argv);
    }
}
