using System;
using System.Collections.Generic;
using System.Diagnostics;

namespace Shapes
{
    // An attribute of this assembly: its constructor is a method definition.
    [AttributeUsage(AttributeTargets.All)]
    public sealed class LocalMarkerAttribute : Attribute
    {
    }

    public class Outer<T>
    {
        public class Middle<U, V>
        {
            public class Inner<W>
            {
                public void Touch() { }
            }
        }

        public class Plain
        {
            public void Touch() { }
        }
    }

    public interface IGeneric<T>
    {
        void Take(T value);
    }

    public class ImplementsGeneric : IDisposable, IGeneric<int>
    {
        public void Take(int value) { }
        public void Dispose() { }
    }

    public class GenericBase<T>
    {
        public virtual void Run() { }
    }

    // Its base class is a TypeSpec (a generic instance).
    public class DerivedFromSpec : GenericBase<int>
    {
        public override void Run() { }
    }

    public class PlainBase
    {
        public virtual void Run() { }
    }

    public class DerivedFromDef : PlainBase
    {
        public override void Run() { }
    }

    // Its base class and interfaces live in other assemblies.
    [Obsolete("shape")]
    [DebuggerDisplay("attributed")]
    [LocalMarker]
    public class Attributed : Exception, IDisposable, ICloneable
    {
        [Obsolete]
        [DebuggerStepThrough]
        [LocalMarker]
        public void Marked() { }

        public void Unmarked() { }

        public void Dispose() { }

        public object Clone() => this;
    }

    public readonly struct ReadOnlyShape
    {
        public readonly int X;
        public int Get() => X;
    }

    public ref struct RefShape
    {
        public int X;
        public int Get() => X;
    }

    public static class Statics
    {
        public static int Count;

        static Statics() { Count = 1; }

        public static void Run() { }

        public static List<int> Items() => new List<int>();
    }

    public interface IRunner
    {
        void Run();
    }

    // Overloads and an abstract method of the same name, for token searches.
    public abstract class Searchable
    {
        public abstract void Find();
        public void Find(int value) { }
        public void Find(string value) { }
    }
}
