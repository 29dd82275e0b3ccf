<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>QObject</name>
    <message>
        <source>Loading...</source>
        <translation>Wird geladen …</translation>
    </message>
    <message>
        <source>Bandwidth limit exceeded. Please adjust the frame rate or advanced parameters and retry.</source>
        <translation>Bandbreitengrenze überschritten. Bitte Bildrate oder erweiterte Parameter anpassen und erneut versuchen.</translation>
    </message>
    <message>
        <source>screen %1</source>
        <translation>Bildschirm %1</translation>
    </message>
    <message>
        <source>This action will change the resolutions of the following screens: %1, Do you want to continue?</source>
        <translation>Diese Aktion ändert die Auflösungen der folgenden Bildschirme: %1. Möchten Sie fortfahren?</translation>
    </message>
</context>
</TS>
