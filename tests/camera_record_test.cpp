// What a camera is and how it is stored: identity, record, masks, the queue of procs.
#include "tests/camera_script.h"

#include <gmock/gmock.h>

namespace {

// A list of one entry as records of that version hold it.
std::string List(int version, const std::string& name) {
  return std::string(version >= 532 ? "P1|" : "") + "1|" + name + "|P1|E1|1|H264|" +
         (version > 812 ? "G711|" : "") + "60|15|1|25|2048|1280|720|3|";
}

std::vector<GXT_ITEM> Record(int version) {
  const std::string identity = "Acme|One|F1|S1|H1|",
                    base = "admin|secret|1|128|3|";  // mode, DVR flags and index
  return Items((version > 805 ? identity + base : base + identity) + List(version, "main") +
               List(version, "jpeg") + "http://cam/onvif")
      .Items();
}

std::unique_ptr<CONVIFCam> NewCamera(int type = CONVIFCam::TYPE_DISCOVERED) {
  return std::make_unique<CONVIFCam>(CameraDefinition(type));
}

CDeviceConfig Identity(const std::string& manufacturer, const std::string& model, const std::string& serial,
                       const std::string& hardware, const std::string& firmware = "1.0") {
  return DeviceRecord(CONVIFCam::TYPE_DISCOVERED, {{"Manufacturer", manufacturer},
                                                   {"Model", model},
                                                   {"Firmware", firmware},
                                                   {"Serial No.", serial},
                                                   {"Hardware ID", hardware}});
}

TEST(CameraRecord, IsReadInTheFormOfEveryVersion) {
  for (const int version : {500, 531, 532, 706, 804, 805, 806, 812, 813}) {
    SCOPED_TRACE(version);
    const auto camera = NewCamera();
    const std::vector<GXT_ITEM> items = Record(version);
    const auto first = [&items](size_t count) {
      return std::vector<GXT_ITEM>(items.begin(), items.begin() + static_cast<long>(count));
    };
    CGXFile file(CGXItems(items), version);
    ASSERT_TRUE(camera->ReadData(&file, version));
    CDeviceConfig same = Identity("Acme", "One", "S1", "H1");
    EXPECT_TRUE(camera->IsSameConfig(&same));
    EXPECT_EQ(camera->UserName(), "admin");
    EXPECT_EQ(camera->Password(), "secret");
    EXPECT_EQ(camera->DVRResolutionIndex(), 3);
    EXPECT_EQ(camera->ServiceURL(), "http://cam/onvif");
    EXPECT_EQ(camera->PTZURL(), camera->ServiceURL());
    CResolutionDescriptor main, jpeg;
    camera->LoadResolutionDescriptor(0, &main, RTSP_PROFILE_H264);
    camera->LoadResolutionDescriptor(0, &jpeg, RTSP_PROFILE_JPEG);
    EXPECT_EQ(main.Description(), "main");
    EXPECT_EQ(jpeg.Description(), "jpeg");
    EXPECT_EQ(jpeg.Size().Height, 720);

    // Every cut is noticed, and what came before it is there.
    for (size_t length = 0; length < items.size(); ++length) {
      CGXFile cut(CGXItems(first(length)), version);
      EXPECT_FALSE(NewCamera()->ReadData(&cut, version)) << length;
    }
    if (version != GX_FILE_VERSION) continue;
    for (size_t room = 0; room <= items.size(); ++room) {  // written, also on a disk that is full
      CGXFile written;
      written.FailWritesFrom(static_cast<int>(room));
      EXPECT_EQ(camera->WriteData(&written, version), room == items.size()) << room;
      EXPECT_EQ(written.Items().Items(), first(room));
    }
  }
}

TEST(CameraIdentity, IsFourTextsAndDecidesWhetherItSendsAlarms) {
  const auto loaded = [](const char* manufacturer, const char* model) {
    auto camera = NewCamera();
    CDeviceConfig record = Identity(manufacturer, model, "S1", "H1");
    camera->LoadFrom(&record);
    return camera;
  };
  ASSERT_TRUE(SetNetworkInterface("lo"));
  EXPECT_EQ(NewCamera()->GetConfigURL(), "http://127.0.0.0/onvif/device_service");  // the controller's subnet
  EXPECT_EQ(NewCamera()->AudioFormat().BytesPerSecond, 16000);
  const auto camera = loaded("Acme", "One");
  EXPECT_EQ(camera->TraceName(), "Acme:One");
  EXPECT_EQ(camera->EDRVName(), "Acme One");
  CDeviceConfig upgraded = Identity("Acme", "One", "S1", "H1", "2.0");
  EXPECT_TRUE(camera->IsSameConfig(&upgraded));
  for (CDeviceConfig other : {Identity("ACME", "One", "S1", "H1"), Identity("Acme", "one", "S1", "H1"),
                              Identity("Acme", "One", "s1", "H1"), Identity("Acme", "One", "S1", "h1")})
    EXPECT_FALSE(camera->IsSameConfig(&other));
  for (const char* maker : {"Orvell", "ORVELL"}) {
    const bool alarmBrand = std::string(maker) == "Orvell";
    const auto other = loaded(maker, "OV");
    EXPECT_EQ(other->IsVelmoraDevice(), alarmBrand);
    EXPECT_EQ(other->CameraFlags() & 0x40000, alarmBrand ? 0x40000 : 0);
  }
}

TEST(CameraMask, FoldsStreamsThatThereAreNotIntoTheLast) {
  const struct {
    int Settings;
    unsigned Wanted, Kept;
  } cases[] = {{0, 0b111, 0},     {1, 0b110, 0b001}, {2, 0b100, 0b010},
               {2, 0b101, 0b011}, {3, 0b101, 0b101}, {1, 0, 0}};
  for (const auto& c : cases) {
    const auto camera = NewCamera();
    SetEntries(camera.get(), {}, std::vector<std::string>(static_cast<size_t>(c.Settings), Entry("x")));
    unsigned mask = c.Wanted;
    EXPECT_EQ(camera->FixResMask(&mask), c.Settings);
    EXPECT_EQ(mask, c.Kept) << c.Settings << ' ' << c.Wanted;
  }
}

TEST(Procs, WaitInOrderAndGoByType) {
  std::vector<int> log;
  class CLoggingProc : public CONVIF_Proc {
   public:
    CLoggingProc(int type, int number, std::vector<int>* log)
        : CONVIF_Proc(type), m_iNumber(number), m_pLog(log) {}
    int DoProc(CONVIFCam*) override { return m_pLog->push_back(m_iNumber), 1; }

   private:
    const int m_iNumber;
    std::vector<int>* const m_pLog;
  };
  const auto make = [&log](int type, int number) { return std::make_unique<CLoggingProc>(type, number, &log); };
  CProcQueue queue;
  for (const auto& [type, number] : {std::pair(1, 1), std::pair(0, 2), std::pair(1, 3), std::pair(2, 4)})
    queue.Push(make(type, number));
  queue.Kill(1);
  while (const auto proc = queue.Pull()) proc->DoProc(nullptr);
  EXPECT_EQ(log, (std::vector<int>{2, 4}));
  EXPECT_TRUE(queue.Claim());
  EXPECT_FALSE(queue.Claim());
  EXPECT_EQ(queue.Pull(), nullptr);  // the worker ends
  EXPECT_TRUE(queue.Claim());
  // One a pass is completed, the others are dropped.
  for (int i = 1; i <= 3; ++i) EXPECT_EQ(queue.PushFinished(make(0, i)), i > 1);
  ASSERT_NE(queue.PullFinished(), nullptr);
  EXPECT_EQ(queue.PullFinished(), nullptr);
}

TEST(RunState, StartsARecordingOnceForEachLoad) {
  CRunState state;
  EXPECT_FALSE(state.TakeDVRRequest());
  EXPECT_TRUE(state.Set(STATE_DVR_REQUESTED, state.Now()));
  EXPECT_TRUE(state.TakeDVRRequest());
  EXPECT_EQ(state.Bits(), STATE_DVR_STARTED);
  EXPECT_TRUE(state.Set(STATE_DVR_REQUESTED, state.Now()));
  EXPECT_FALSE(state.TakeDVRRequest());
  state.Reset();
  EXPECT_TRUE(state.Set(STATE_DVR_REQUESTED, state.Now()) && state.TakeDVRRequest());
}

}  // namespace
