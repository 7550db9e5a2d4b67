// The built plug-in as the controller meets it: its dynamic symbols, and its entry points through dlopen.
#include "host/base/gxassert.h"
#include "host/base/gxlist.h"
#include "host/system/component.h"
#include "host/video/video.h"
#include "tests/support/camsim_process.h"
#include "tests/support/places.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

const std::string PLUGIN = std::string(TEST_BIN_DIR) + "/onvifcam.so";

constexpr const char* ENTRY_POINTS =
    "CreateAudioFile CreateAudioService CreateAudioShare CreateDeviceInterface CreateSystemComponent DllMain "
    "LoadAudioFileTypes LoadAudioServices LoadDeviceInterfaces LoadSystemComponentDefs RegisterComponent "
    "RegisterInterface ";

class Plugin : public testing::Test {
 protected:
  void SetUp() override {
    m_pLibrary = dlopen(PLUGIN.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(m_pLibrary, nullptr) << dlerror();
  }
  void TearDown() override {
    if (m_pLibrary != nullptr) dlclose(m_pLibrary);
  }
  template <class Result, class... Arguments>
  Result Call(const char* name, Arguments... arguments) {
    void* const symbol = dlsym(m_pLibrary, name);
    EXPECT_NE(symbol, nullptr) << name;
    return reinterpret_cast<Result (*)(Arguments...)>(symbol)(arguments...);
  }
  std::vector<std::unique_ptr<CSystemComponentDef>> Definitions(int category) {
    CGXObList list;
    Call<void>("LoadSystemComponentDefs", category, &list);
    std::vector<std::unique_ptr<CSystemComponentDef>> definitions;
    while (!list.IsEmpty()) definitions.emplace_back(static_cast<CSystemComponentDef*>(list.RemoveHead()));
    return definitions;
  }

  void* m_pLibrary = nullptr;
};

TEST(PluginFile, ExportsItsEntryPointsAndNothingElse) {
  const CCommandResult result = RunCommand(std::string("LC_ALL=C nm -D --defined-only ") + PLUGIN, 120);
  ASSERT_EQ(result.status, 0) << result.output;
  std::string exported;  // in the order of the alphabet
  std::istringstream lines(result.output);
  for (std::string address, kind, name; lines >> address >> kind >> name; exported += name + " ")
    EXPECT_EQ(kind, "T") << name;
  EXPECT_EQ(exported, ENTRY_POINTS);
}

TEST_F(Plugin, OffersItsThreeComponentTypesToTheVideoCategoryOnly) {
  EXPECT_EQ((Call<int, unsigned, void*, void*>("DllMain", 1, nullptr, nullptr)), 1);
  for (const int category : {-1, 0, 7, 9}) EXPECT_TRUE(Definitions(category).empty()) << category;
  std::vector<std::tuple<int, std::string, std::string, int>> found,
      expected = {{8073, "ONVIF Video Source (Dynamic)", "", 3},
                  {8074, "ONVIF Video Source (Static)", "", 0},
                  {8072, "ONVIF Video Source", "", 0x100000}};
  for (const auto& definition : Definitions(8))
    found.emplace_back(definition->Type(), definition->TypeName().Str(), definition->Text().Str(),
                       definition->Flags());
  EXPECT_EQ(found, expected);
}

TEST_F(Plugin, CreatesComponentsThatTheHostCanUse) {
  for (const auto& definition : Definitions(8)) {
    const std::unique_ptr<CSystemComponent> component(
        Call<CSystemComponent*>("CreateSystemComponent", definition.get()));
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(component->ComponentType(), definition->Type());
    EXPECT_NE(dynamic_cast<CVideoSystem*>(component.get()), nullptr);  // across the library's border
    const bool camera = component->GetIcomClient(ICOM_CLIENT_SELF) != nullptr;
    EXPECT_EQ(camera, definition->Type() != 8073);
    EXPECT_EQ(component->ConnectionType(), definition->Type() == 8074 ? 8 : 0);
  }
  for (const int type : {0, 8071, 8075}) {
    CSystemComponentDef unknown(type, "", "", 0, 0);
    EXPECT_EQ(Call<CSystemComponent*>("CreateSystemComponent", &unknown), nullptr) << type;
  }
}

TEST_F(Plugin, HasLittleBehindTheOtherEntryPoints) {
  CGXObList list;
  for (const char* name : {"LoadDeviceInterfaces", "LoadAudioServices", "LoadAudioFileTypes"})
    Call<void>(name, &list);
  EXPECT_TRUE(list.IsEmpty());
  void* const none = nullptr;
  EXPECT_EQ(Call<void*>("CreateAudioService", none, none), nullptr);
  EXPECT_EQ(Call<void*>("CreateAudioShare", none, none, none), nullptr);
  EXPECT_EQ(Call<void*>("CreateAudioFile", none, none), nullptr);
  const int asserted = AssertCount();
  EXPECT_EQ(Call<void*>("CreateDeviceInterface", static_cast<CDeviceInterfaceDef*>(nullptr)), nullptr);
  EXPECT_EQ(AssertCount(), asserted + 1);
  Call<void>("RegisterInterface", &list, 5, CGXString("Relay"), 7, 9);
  const std::unique_ptr<CDeviceInterfaceDef> made(static_cast<CDeviceInterfaceDef*>(list.RemoveHead()));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->Name(), "Relay");
  EXPECT_EQ(made->ID() * 100 + made->Number() * 10 + made->Flags(), 579);
}

}  // namespace
