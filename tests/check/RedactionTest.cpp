#include "check/Redaction.h"

#include "check/SetupLog.h"
#include "tests/check/ReadyMachine.h"

#include <gtest/gtest.h>

using namespace check;

TEST(Redaction, TakesUsersNamesOutOfPaths) {
    EXPECT_EQ(WithoutUserNames("C:\\Users\\anna\\x.exe and D:\\users\\B C\\y"),
              "C:\\Users\\...\\x.exe and D:\\users\\...\\y");
    EXPECT_EQ(WithoutUserNames("\"C:\\Users\\anna\" -x"), "\"C:\\Users\\...\" -x");
    EXPECT_EQ(WithoutUserNames("C:\\Users\\anna"), "C:\\Users\\...");
    EXPECT_EQ(WithoutUserNames("C:\\Windows\\x"), "C:\\Windows\\x");
}

TEST(Redaction, KeepsWindowsOwnAccountsAlone) {
    for (const char* own : {"BUILTIN\\Users", "NT AUTHORITY\\LocalService", "nt authority\\SYSTEM",
                            "Everyone", "LocalSystem", "NT SERVICE\\TrustedInstaller"}) {
        EXPECT_EQ(WithoutPerson(own), own);
    }
    for (const char* person : {"VM\\root", "OFFICE\\anna", "S-1-5-21-1-2-3-1000", ".\\anna", ""}) {
        EXPECT_EQ(WithoutPerson(person), "another account");
    }
}

TEST(Redaction, TakesPersonsOutOfAMachinesState) {
    MachineState machine = ReadyMachine();
    machine.service.account = ".\\anna";
    machine.service.commandLine = "C:\\Users\\anna\\service.exe";
    machine.service.program = machine.service.commandLine;
    machine.service.programWriters.names = {"BUILTIN\\Users", "OFFICE\\anna"};
    machine.service.folderWriters.names = {"OFFICE\\anna"};
    machine.toastController.programWriters.names = {"OFFICE\\anna"};
    machine.toastController.program = "C:\\Users\\anna\\toast.exe";
    machine.toastController.runAs = "OFFICE\\anna";
    machine.image.path = "C:\\Users\\anna\\image.bin";
    const MachineState without = WithoutPersons(machine);
    EXPECT_EQ(without.service.account, "another account");
    EXPECT_EQ(without.service.program, "C:\\Users\\...\\service.exe");
    EXPECT_EQ(without.service.programWriters.names,
              (std::vector<std::string>{"BUILTIN\\Users", "another account"}));
    EXPECT_EQ(without.service.folderWriters.names, std::vector<std::string>{"another account"});
    EXPECT_EQ(without.toastController.programWriters.names, std::vector<std::string>{"another account"});
    EXPECT_EQ(without.toastController.program, "C:\\Users\\...\\toast.exe");
    EXPECT_EQ(without.toastController.runAs, "another account");
    EXPECT_EQ(without.image.path, "C:\\Users\\...\\image.bin");
}

TEST(Redaction, TakesTheComputersNameOutOfAMachinesState) {
    MachineState machine = ReadyMachine();
    machine.service.commandLine = "\"\\\\pc7\\tools\\service.exe\" -x";
    machine.updateMode.text = "PC7";
    const MachineState without = WithoutPersons(machine, {"PC7"});
    EXPECT_EQ(without.service.commandLine, "\"\\\\...\" -x");
    EXPECT_EQ(without.updateMode.text, "...");
}

TEST(Redaction, KeepsWhatAToastControllerRunsAsIfThatIsNobody) {
    MachineState machine = ReadyMachine();
    for (const char* nobody : {"Interactive User", "interactive user", "nt authority\\localservice", ""}) {
        machine.toastController.runAs = nobody;
        EXPECT_EQ(WithoutPersons(machine).toastController.runAs, nobody);
    }
}

TEST(Redaction, TakesAccountAndComputerOutOfARefusedStart) {
    const auto refused = [](const std::string& computer, const std::string& domain, const std::string& user,
                            const std::string& sid) {
        return "<Event><System><Provider Name='Microsoft-Windows-DistributedCOM'/><EventID "
               "Qualifiers='0'>10016</EventID><Computer>" +
               computer +
               "</Computer><Security UserID=''/></System><EventData><Data Name='param1'>application-specific"
               "</Data><Data Name='param4'>{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}</Data><Data "
               "Name='param6'>" +
               domain + "</Data><Data Name='param7'>" + user + "</Data><Data Name='param8'>" + sid +
               "</Data><Data Name='param9'>LocalHost (Using LRPC)</Data></EventData></Event>";
    };
    EXPECT_EQ(
        EventWithoutPersons(refused("PC7.office.test", "OFFICE", "anna", "S-1-5-21-1-2-3-1001"), {"PC7"}),
        refused("", "", "", ""));
    EXPECT_EQ(EventWithoutPersons(refused("PC7", "AzureAD", "Anna", "S-1-12-1-77-8-9-10"), {"PC7"}),
              refused("", "", "", ""));
    const std::string own = refused("", "NT AUTHORITY", "LOCAL SERVICE", "S-1-5-19");
    EXPECT_EQ(EventWithoutPersons(own, {"PC7"}), own);
}

TEST(Redaction, TakesThePersonsAccountOutOfANewService) {
    const auto installed = [](const std::string& account) {
        return "<Event><System><EventID Qualifiers=\"16384\">7045</EventID></System><EventData><Data "
               "Name=\"ServiceName\">Veyra Camera DFU service</Data><Data Name=\"AccountName\">" +
               account + "</Data></EventData></Event>";
    };
    EXPECT_EQ(EventWithoutPersons(installed("OFFICE\\anna")), installed(""));
    EXPECT_EQ(EventWithoutPersons(installed("LocalSystem")), installed("LocalSystem"));
    EXPECT_EQ(EventWithoutPersons(installed("NT AUTHORITY\\LocalService")),
              installed("NT AUTHORITY\\LocalService"));
}

TEST(Redaction, TakesSidsAndTheComputersNameOutOfAnyText) {
    EXPECT_EQ(EventWithoutPersons("<Data>pc7\\anna, s-1-5-21-1-2-3-1000; S-1-5-19 on (PC7)</Data>", {"PC7"}),
              "<Data>..., ...; S-1-5-19 on (...)</Data>");
    EXPECT_EQ(EventWithoutPersons("S-1-5-21-"), "...");
    EXPECT_EQ(EventWithoutPersons("<Data>PC70, MY-PC7 and PC7-2</Data>", {"PC7"}),
              "<Data>PC70, MY-PC7 and PC7-2</Data>");
    EXPECT_EQ(EventWithoutPersons("<Data Name='Data'>Data</Data>", {"DATA"}), "<Data Name='Data'>...</Data>");
}

TEST(Redaction, TakesTheLongestOfTheComputersNamesOut) {
    const std::vector<std::string> names{"NOTEBOOK-OF-ANN", "Notebook-of-anna-miller", "corp.example",
                                         "Notebook-of-anna-miller.corp.example"};
    EXPECT_EQ(EventWithoutPersons("<Data>notebook-of-anna-miller, NOTEBOOK-OF-ANN\\anna</Data>", names),
              "<Data>..., ...</Data>");
    EXPECT_EQ(WithoutTraces("notebook-of-anna-miller.corp.example; x.CORP.EXAMPLE; corp.example2", names),
              "...; x....; corp.example2");
}

TEST(Redaction, TakesNamesOutOfATextWithoutTags) {
    EXPECT_EQ(WithoutTraces("a < b, pc7\\anna: \\\\PC7\\share C:\\Users\\anna\\x S-1-5-21-1-2-3-1000 PC70",
                            {"PC7"}),
              "a < b, ... \\\\... C:\\Users\\...\\x ... PC70");
    EXPECT_EQ(WithoutTraces("PC7 as it is", {""}), "PC7 as it is");
    EXPECT_EQ(WithoutTraces("PC7 as it is"), "PC7 as it is");
}

TEST(Redaction, LetsAPathGoOnBehindAFolderThatIsCalledLikeTheComputer) {
    EXPECT_EQ(WithoutTraces("C:\\Local\\x\\veyra.inf, ROOT/local\\y and local\\anna", {"local"}),
              "C:\\...\\x\\veyra.inf, ROOT/...\\y and ...");
}

TEST(Redaction, TakesAShortNameOutBeforeAnAccountAndAShareAlone) {
    EXPECT_EQ(WithoutTraces("C:\\Windows\\c\\x, a c, c\\anna and \\\\C\\share", {"C"}),
              "C:\\Windows\\c\\x, a c, ... and \\\\...");
    EXPECT_EQ(WithoutTraces("USB\\VID_2F1A to b, to\\anna", {"to"}), "USB\\VID_2F1A to b, ...");
}

TEST(Redaction, TakesComputerAndUserOutOfAnEvent) {
    EXPECT_EQ(
        EventWithoutPersons(
            "<Event><System><Provider Name='VeyraCameraDfuService'/><EventID>0</EventID><Computer>PC-OF-ANNA"
            "</Computer><Security UserID='S-1-5-21-1'/></System><Data>C:\\Users\\anna\\x</Data></Event>"),
        "<Event><System><Provider "
        "Name='VeyraCameraDfuService'/><EventID>0</EventID><Computer></Computer><Security "
        "UserID=''/></System><Data>C:\\Users\\...\\x</Data></Event>");
    EXPECT_EQ(EventWithoutPersons("<Computer>PC"), "<Computer>");
}

TEST(SetupLog, KeepsTheSectionsOfTheVendorsDevices) {
    EXPECT_EQ(VendorSections(R"([Boot Session: 2026/11/23 08:00:00.000]

>>>  [Device Install (Hardware initiated) - USB\VID_1234&PID_0001\1]
>>>  Section start 2026/11/23 09:00:00.000
     ump: one
<<<  Section end 2026/11/23 09:00:01.000
<<<  [Exit status: SUCCESS]


>>>  [Device Install (Hardware initiated) - USB\vid_2f1a&pid_7e01\KV4000001]
>>>  Section start 2026/11/23 10:00:00.000
     cmd: "C:\Users\anna\setup.exe"
<<<  Section end 2026/11/23 10:00:01.000
<<<  [Exit status: FAILURE(0xe0000203)]


>>>  [Another]
>>>  Section start 2026/11/23 11:00:00.000
<<<  Section end 2026/11/23 11:00:01.000
<<<  [Exit status: SUCCESS]
)"),
              R"(>>>  [Device Install (Hardware initiated) - USB\vid_2f1a&pid_7e01\KV4000001]
>>>  Section start 2026/11/23 10:00:00.000
     cmd: "C:\Users\...\setup.exe"
<<<  Section end 2026/11/23 10:00:01.000
<<<  [Exit status: FAILURE(0xe0000203)]

)");
}

TEST(SetupLog, NamesNeitherComputerNorPerson) {
    EXPECT_EQ(VendorSections(R"(>>>  [Device Install - USB\VID_2F1A&PID_7E01\KV4000001]
     cmd: \\Notebook-of-anna-miller.corp.example\tools\x.exe
     user: NOTEBOOK-OF-ANN\anna, S-1-5-21-1-2-3-1000, S-1-5-18
<<<  Section end on notebook-of-anna-miller
)",
                             {"NOTEBOOK-OF-ANN", "Notebook-of-anna-miller", "corp.example",
                              "Notebook-of-anna-miller.corp.example"}),
              R"(>>>  [Device Install - USB\VID_2F1A&PID_7E01\KV4000001]
     cmd: \\...
     user: ..., ..., S-1-5-18
<<<  Section end on ...

)");
}

TEST(SetupLog, KeepsASectionThatHasNoEndYet) {
    EXPECT_EQ(VendorSections(">>>  [Device Install - USB\\VID_2F1A&PID_7E01]\n     x\n"),
              ">>>  [Device Install - USB\\VID_2F1A&PID_7E01]\n     x\n\n");
    EXPECT_EQ(VendorSections(""), "");
    EXPECT_EQ(VendorSections("no section VID_2F1A\n"), "");
}
