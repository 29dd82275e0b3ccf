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
</context>
</TS>
