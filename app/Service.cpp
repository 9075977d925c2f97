namespace Velk {}
