// Which build of the library this is: strings libkovcameraadaptor.so | grep kovcameraadaptor

__attribute__((used)) static const char kVersion[] = "kovcameraadaptor " KOV_VERSION;
